// Access control lists: a growable list of entries and its external form.  Complete
// interface of such lists; mktfs only parses them (acl/short_text.h) and keeps them.
//
// A list is one allocation, owned by its holder and freed with tvo_acl_free.
// Functions that may add an entry take its address, since the list may move; all
// entry pointers into it are invalid afterwards.  Not thread-safe.
//
// Functions return 0 (or what they say) and on failure -1 or null with errno set;
// a null argument is EINVAL.  Nothing is logged.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "th/handle.h"

enum tvo_acl_tag : std::uint32_t {
    TVO_ACL_USER_OBJ = 1,   // owner
    TVO_ACL_USER = 2,       // named by its qualifier
    TVO_ACL_GROUP_OBJ = 3,  // owning group
    TVO_ACL_GROUP = 4,      // named by its qualifier
    TVO_ACL_MASK = 5,
    TVO_ACL_OTHER = 6,
};

inline constexpr std::uint32_t TVO_ACL_READ = 4;
inline constexpr std::uint32_t TVO_ACL_WRITE = 2;
inline constexpr std::uint32_t TVO_ACL_EXECUTE = 1;
inline constexpr std::uint32_t TVO_ACL_UNDEFINED_ID = 0xFFFFFFFF;  // qualifier of a new entry
inline constexpr std::uint32_t TVO_ACL_MODE_HAS_ACL = 0x10000;     // mode bit set by tvo_acl_complete

enum tvo_acl_which : int {
    TVO_ACL_FIRST_ENTRY = 0,
    TVO_ACL_NEXT_ENTRY = 1,
};

// The external form: this header, then `count` entries.  All fields are
// little-endian as stored.
struct tvo_acl_entry {
    std::uint32_t tag_and_permissions;  // tag in the top 8 bits
    std::uint32_t qualifier;            // user or group id
};
struct tvo_acl_external {
    std::uint32_t size;  // bytes: 8 + 8 * count
    std::uint16_t version;
    std::uint16_t count;
};
struct tvo_acl {
    std::uint32_t cursor;       // index of the next entry for tvo_acl_get_entry
    std::uint32_t capacity;     // entries that fit
    tvo_acl_external external;  // the entries follow
};
static_assert(sizeof(tvo_acl_entry) == 8 && sizeof(tvo_acl_external) == 8 && sizeof(tvo_acl) == 16);

// ---- Lists

// An empty list with room for at least `count` entries.  ENOMEM.
[[nodiscard]] tvo_acl *tvo_acl_init(std::uint32_t count);
[[nodiscard]] tvo_acl *tvo_acl_dup(const tvo_acl *acl);  // cursor at the start.  ENOMEM
void tvo_acl_free(tvo_acl *acl);                         // null is ignored

using tvo_acl_ptr = th_handle<tvo_acl, tvo_acl_free>;

// Appends an entry with tag 0, no permissions and no qualifier.  ENOMEM, also for
// more than 65535 entries; the list is then unchanged.
[[nodiscard]] int tvo_acl_create_entry(tvo_acl **acl, tvo_acl_entry **entry);
// Removes an entry and sets the cursor back to the start.  EINVAL when it is not
// in the list.
[[nodiscard]] int tvo_acl_delete_entry(tvo_acl *acl, tvo_acl_entry *entry);
// The first or the next entry: 1 and the entry, borrowed, or 0 at the end.  EINVAL for an
// unknown `which`.
[[nodiscard]] int tvo_acl_get_entry(tvo_acl *acl, int which, tvo_acl_entry **entry);
[[nodiscard]] int tvo_acl_copy_entry(tvo_acl_entry *to, const tvo_acl_entry *from);

// ---- Entries

[[nodiscard]] int tvo_acl_get_tag_type(const tvo_acl_entry *entry, std::uint32_t *tag);
[[nodiscard]] int tvo_acl_set_tag_type(tvo_acl_entry *entry, std::uint32_t tag);  // EOPNOTSUPP
// A copy of the id, which the caller frees with free().  EINVAL unless the entry
// is a named user or group; ENOMEM.
[[nodiscard]] std::uint32_t *tvo_acl_get_qualifier(const tvo_acl_entry *entry);
[[nodiscard]] int tvo_acl_set_qualifier(tvo_acl_entry *entry, const std::uint32_t *id);

// A permission set is a value: read it, change its bits, store it back.
[[nodiscard]] int tvo_acl_get_permset(const tvo_acl_entry *entry, std::uint32_t *permissions);
[[nodiscard]] int tvo_acl_set_permset(tvo_acl_entry *entry, std::uint32_t permissions);  // low 24 bits
[[nodiscard]] int tvo_acl_add_perm(std::uint32_t *permissions, std::uint32_t bit_number);
[[nodiscard]] int tvo_acl_delete_perm(std::uint32_t *permissions, std::uint32_t bit_number);
[[nodiscard]] int tvo_acl_clear_perms(std::uint32_t *permissions);

// ---- External form

[[nodiscard]] ssize_t tvo_acl_size(const tvo_acl *acl);  // bytes
// Copies the external form out; returns its size.  EINVAL when it exceeds `room`.
[[nodiscard]] ssize_t tvo_acl_copy_ext(void *buffer, const tvo_acl *acl, ssize_t room);
// A list from an external form, which must be readable for the size it states.
// EOPNOTSUPP for versions above 1, EINVAL when size and count disagree, ENOMEM.
[[nodiscard]] tvo_acl *tvo_acl_copy_int(const void *external);
