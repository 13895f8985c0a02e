#include "acl/check.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "acl/layout.h"

using namespace acl_layout;

namespace {

constexpr std::uint32_t VALID_PERMISSIONS = TVO_ACL_READ | TVO_ACL_WRITE | TVO_ACL_EXECUTE;

int compare_entries(const void *left, const void *right) {
    const auto &a = *static_cast<const tvo_acl_entry *>(left);
    const auto &b = *static_cast<const tvo_acl_entry *>(right);
    if (tag_of(a) != tag_of(b))
        return tag_of(a) < tag_of(b) ? -1 : 1;
    if (!is_named(tag_of(a)) || qualifier_of(a) == qualifier_of(b))
        return 0;
    return qualifier_of(a) < qualifier_of(b) ? -1 : 1;
}

bool entry_is_well_formed(const tvo_acl_entry &entry) {
    const std::uint32_t tag = tag_of(entry);
    return tag >= TVO_ACL_USER_OBJ && tag <= TVO_ACL_OTHER &&
           (permissions_of(entry) & ~VALID_PERMISSIONS) == 0;
}

using tag_counts = std::array<std::uint32_t, TVO_ACL_OTHER + 1>;

tag_counts count_tags(std::span<const tvo_acl_entry> entries) {
    tag_counts counts{};
    for (const tvo_acl_entry &entry : entries)
        if (tag_of(entry) < counts.size())
            ++counts[tag_of(entry)];
    return counts;
}

// How a basic entry and the file mode express the same three permissions.
struct mode_share {
    std::uint32_t tag;
    unsigned shift;  // of the three bits in the mode
    const char *adding_failed;
};
constexpr mode_share MODE_SHARES[] = {
    {TVO_ACL_USER_OBJ, 6, "Adding <user_obj> failed"},
    {TVO_ACL_GROUP_OBJ, 3, "Adding <group_obj> failed"},
    {TVO_ACL_OTHER, 0, "Adding <other> failed"},
};

std::uint32_t mode_from_entries(std::uint32_t mode, std::span<const tvo_acl_entry> entries) {
    for (const tvo_acl_entry &entry : entries) {
        for (const mode_share &share : MODE_SHARES) {
            if (share.tag == tag_of(entry)) {
                mode &= ~(VALID_PERMISSIONS << share.shift);
                mode |= (permissions_of(entry) & VALID_PERMISSIONS) << share.shift;
            }
        }
    }
    return mode;
}

int append_entry(tvo_acl *&acl, std::uint32_t tag, std::uint32_t permissions) {
    tvo_acl_entry *entry = nullptr;
    if (tvo_acl_create_entry(&acl, &entry) != 0)
        return -1;
    store(*entry, tag, permissions);
    return 0;
}

// Adds what the list lacks.  Returns null, or what failed, with errno set.
const char *make_complete(tvo_acl *&acl, std::uint32_t mode) {
    const tag_counts counts = count_tags(entries_of(acl->external));
    for (const mode_share &share : MODE_SHARES)
        if (counts[share.tag] == 0 &&
            append_entry(acl, share.tag, mode >> share.shift & VALID_PERMISSIONS) != 0)
            return share.adding_failed;
    const bool named = counts[TVO_ACL_USER] + counts[TVO_ACL_GROUP] > 0;
    if (named && counts[TVO_ACL_MASK] == 0 && tvo_acl_calc_mask(&acl) != 0)
        return "Mask calculation failed";
    return tvo_acl_valid(acl) != 0 ? "ACL validation failed" : nullptr;
}

// Completes a copy of the list.  Returns 0 or -1; `message` says how it went.
int complete_copy(const tvo_acl &acl, tvo_acl *&result, std::uint32_t &mode, const char *&message) {
    const std::span entries = entries_of(acl.external);
    const tag_counts counts = count_tags(entries);
    const std::uint32_t new_mode = mode_from_entries(mode, entries);
    if (counts[TVO_ACL_USER] + counts[TVO_ACL_GROUP] + counts[TVO_ACL_MASK] == 0) {
        mode = new_mode & ~TVO_ACL_MODE_HAS_ACL;
        message = "Ok - no ACL required";
        return 0;
    }
    tvo_acl *copy = tvo_acl_dup(&acl);
    if (!copy) {
        message = "ACL duplication failed";
        return -1;
    }
    if (const char *failure = make_complete(copy, new_mode)) {
        const int err = errno;
        tvo_acl_free(copy);
        message = failure;
        return fail(err);
    }
    result = copy;
    mode = new_mode | TVO_ACL_MODE_HAS_ACL;
    message = "Ok - ACL valid";
    return 0;
}

}  // namespace

void tvo_acl_posix_sort_np(tvo_acl_external *external) {
    if (external) {
        const std::span entries = entries_of(*external);
        std::qsort(entries.data(), entries.size(), sizeof(tvo_acl_entry), compare_entries);
    }
}

int tvo_acl_posix_check_np(const tvo_acl_external *external) {
    if (!external)
        return EINVAL;
    if (le16toh(external->version) > MAX_VERSION)
        return EOPNOTSUPP;
    const std::span entries = entries_of(*external);
    if (!std::ranges::all_of(entries, entry_is_well_formed))
        return EINVAL;
    // Named entries must ascend strictly; basic ones are counted below.
    const auto out_of_order = [](const tvo_acl_entry &a, const tvo_acl_entry &b) {
        const int order = compare_entries(&a, &b);
        return order > 0 || (order == 0 && is_named(tag_of(a)));
    };
    if (std::ranges::adjacent_find(entries, out_of_order) != entries.end())
        return EINVAL;
    const tag_counts counts = count_tags(entries);
    const bool complete = counts[TVO_ACL_USER_OBJ] == 1 && counts[TVO_ACL_GROUP_OBJ] == 1 &&
                          counts[TVO_ACL_OTHER] == 1 && counts[TVO_ACL_MASK] <= 1;
    return complete ? 0 : EINVAL;
}

int tvo_acl_valid(tvo_acl *acl) {
    if (!acl)
        return fail(EINVAL);
    tvo_acl_posix_sort_np(&acl->external);
    if (const int err = tvo_acl_posix_check_np(&acl->external); err != 0)
        return fail(err);
    return 0;
}

int tvo_acl_calc_mask(tvo_acl **acl) {
    if (!acl || !*acl)
        return fail(EINVAL);
    std::uint32_t mask = 0;
    for (tvo_acl_entry &entry : entries_of((*acl)->external))
        if (tag_of(entry) == TVO_ACL_GROUP_OBJ || is_named(tag_of(entry)))
            mask |= permissions_of(entry);
    const auto find_tag = [](std::span<tvo_acl_entry> entries, std::uint32_t tag) {
        return std::ranges::find(entries, tag, tag_of);
    };
    if (count_tags(entries_of((*acl)->external))[TVO_ACL_MASK] > 0) {
        store(*find_tag(entries_of((*acl)->external), TVO_ACL_MASK), TVO_ACL_MASK, mask);
        return 0;
    }
    if (append_entry(*acl, TVO_ACL_MASK, mask) != 0)
        return -1;
    const std::span entries = entries_of((*acl)->external);
    const auto added = entries.end() - 1;
    std::rotate(find_tag(entries.first(entries.size() - 1), TVO_ACL_OTHER), added, entries.end());
    return 0;
}

int tvo_acl_complete(const tvo_acl *acl, tvo_acl **result, std::uint32_t *mode, const char **message) {
    const char *ignored = nullptr;
    const char *&outcome = message ? *message : ignored;
    if (!result || !mode) {
        outcome = "NULL pointer";
        return fail(EINVAL);
    }
    *result = nullptr;
    if (!acl) {
        outcome = "Ok - no ACL given";
        return 0;
    }
    return complete_copy(*acl, *result, *mode, outcome);
}
