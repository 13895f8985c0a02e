#include "acl/acl.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "acl/layout.h"

using namespace acl_layout;

namespace {

constexpr std::uint32_t GROWTH = 32;  // entries
constexpr std::uint32_t LAST_PERMISSION_BIT = 2;

tvo_acl *allocate(std::uint64_t capacity) {
    if (capacity > UINT32_MAX) {
        errno = ENOMEM;
        return nullptr;
    }
    auto *acl = static_cast<tvo_acl *>(std::malloc(sizeof(tvo_acl) + capacity * sizeof(tvo_acl_entry)));
    if (acl) {
        *acl = {.cursor = 0, .capacity = static_cast<std::uint32_t>(capacity), .external = {}};
        store_count(acl->external, 0);
    }
    return acl;
}

void copy_external(tvo_acl &to, const tvo_acl_external &from_header, const void *from) {
    std::memcpy(&to.external, from, le32toh(from_header.size));
}

// Makes room for one more entry; moves the list when it is full.
bool reserve_one(tvo_acl *&acl) {
    const std::uint32_t count = count_of(acl->external);
    if (count < acl->capacity)
        return true;
    tvo_acl *larger = allocate(std::uint64_t{acl->capacity} + GROWTH);
    if (!larger)
        return false;
    larger->cursor = acl->cursor;
    copy_external(*larger, acl->external, &acl->external);
    tvo_acl_free(acl);
    acl = larger;
    return true;
}

}  // namespace

tvo_acl *tvo_acl_init(std::uint32_t count) {
    return allocate(std::uint64_t{count} / GROWTH * GROWTH + GROWTH);
}

tvo_acl *tvo_acl_dup(const tvo_acl *acl) {
    if (!acl) {
        errno = EINVAL;
        return nullptr;
    }
    tvo_acl *copy = allocate(acl->capacity);
    if (copy)
        copy_external(*copy, acl->external, &acl->external);
    return copy;
}

void tvo_acl_free(tvo_acl *acl) {
    std::free(acl);
}

int tvo_acl_create_entry(tvo_acl **acl, tvo_acl_entry **entry) {
    if (!acl || !*acl || !entry)
        return fail(EINVAL);
    const std::uint32_t count = count_of((*acl)->external);
    if (count == MAX_COUNT || !reserve_one(*acl))
        return fail(ENOMEM);
    store_count((*acl)->external, count + 1);
    tvo_acl_entry &added = entries_of((*acl)->external).back();
    store(added, 0, 0);
    store_qualifier(added, TVO_ACL_UNDEFINED_ID);
    *entry = &added;
    return 0;
}

int tvo_acl_delete_entry(tvo_acl *acl, tvo_acl_entry *entry) {
    if (!acl || !entry)
        return fail(EINVAL);
    const std::span entries = entries_of(acl->external);
    const auto found = std::ranges::find_if(entries, [&](const auto &each) { return &each == entry; });
    if (found == entries.end())
        return fail(EINVAL);
    std::copy(found + 1, entries.end(), found);
    store_count(acl->external, static_cast<std::uint32_t>(entries.size() - 1));
    acl->cursor = 0;
    return 0;
}

int tvo_acl_get_entry(tvo_acl *acl, int which, tvo_acl_entry **entry) {
    if (!acl || !entry || (which != TVO_ACL_FIRST_ENTRY && which != TVO_ACL_NEXT_ENTRY))
        return fail(EINVAL);
    if (which == TVO_ACL_FIRST_ENTRY)
        acl->cursor = 0;
    const std::span entries = entries_of(acl->external);
    if (acl->cursor >= entries.size())
        return 0;
    *entry = &entries[acl->cursor++];
    return 1;
}

int tvo_acl_copy_entry(tvo_acl_entry *to, const tvo_acl_entry *from) {
    if (!to || !from)
        return fail(EINVAL);
    *to = *from;
    return 0;
}

int tvo_acl_get_tag_type(const tvo_acl_entry *entry, std::uint32_t *tag) {
    if (!entry || !tag)
        return fail(EINVAL);
    *tag = tag_of(*entry);
    return 0;
}

int tvo_acl_set_tag_type(tvo_acl_entry *entry, std::uint32_t tag) {
    if (!entry)
        return fail(EINVAL);
    if (tag < TVO_ACL_USER_OBJ || tag > TVO_ACL_OTHER)
        return fail(EOPNOTSUPP);
    store(*entry, tag, permissions_of(*entry));
    return 0;
}

std::uint32_t *tvo_acl_get_qualifier(const tvo_acl_entry *entry) {
    if (!entry || !is_named(tag_of(*entry))) {
        errno = EINVAL;
        return nullptr;
    }
    auto *id = static_cast<std::uint32_t *>(std::malloc(sizeof(std::uint32_t)));
    if (id)
        *id = qualifier_of(*entry);
    return id;
}

int tvo_acl_set_qualifier(tvo_acl_entry *entry, const std::uint32_t *id) {
    if (!entry || !id || !is_named(tag_of(*entry)))
        return fail(EINVAL);
    store_qualifier(*entry, *id);
    return 0;
}

int tvo_acl_get_permset(const tvo_acl_entry *entry, std::uint32_t *permissions) {
    if (!entry || !permissions)
        return fail(EINVAL);
    *permissions = permissions_of(*entry);
    return 0;
}

int tvo_acl_set_permset(tvo_acl_entry *entry, std::uint32_t permissions) {
    if (!entry)
        return fail(EINVAL);
    store(*entry, tag_of(*entry), permissions);
    return 0;
}

int tvo_acl_add_perm(std::uint32_t *permissions, std::uint32_t bit_number) {
    if (!permissions || bit_number > LAST_PERMISSION_BIT)
        return fail(EINVAL);
    *permissions |= 1U << bit_number;
    return 0;
}

int tvo_acl_delete_perm(std::uint32_t *permissions, std::uint32_t bit_number) {
    if (!permissions || bit_number > LAST_PERMISSION_BIT)
        return fail(EINVAL);
    *permissions &= ~(1U << bit_number);
    return 0;
}

int tvo_acl_clear_perms(std::uint32_t *permissions) {
    if (!permissions)
        return fail(EINVAL);
    *permissions = 0;
    return 0;
}

ssize_t tvo_acl_size(const tvo_acl *acl) {
    return !acl ? fail(EINVAL) : static_cast<ssize_t>(le32toh(acl->external.size));
}

ssize_t tvo_acl_copy_ext(void *buffer, const tvo_acl *acl, ssize_t room) {
    const ssize_t size = tvo_acl_size(acl);
    if (!buffer || size < 0 || room < size)
        return fail(EINVAL);
    std::memcpy(buffer, &acl->external, static_cast<std::size_t>(size));
    return size;
}

tvo_acl *tvo_acl_copy_int(const void *external) {
    if (!external) {
        errno = EINVAL;
        return nullptr;
    }
    tvo_acl_external header;
    std::memcpy(&header, external, sizeof header);  // the caller's buffer may be unaligned
    if (le16toh(header.version) > MAX_VERSION) {
        errno = EOPNOTSUPP;
        return nullptr;
    }
    if (le32toh(header.size) != sizeof header + count_of(header) * sizeof(tvo_acl_entry)) {
        errno = EINVAL;
        return nullptr;
    }
    tvo_acl *acl = tvo_acl_init(count_of(header));
    if (acl)
        copy_external(*acl, header, external);
    return acl;
}
