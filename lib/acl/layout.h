// How the fields of an access control list are stored; shared by the files of
// the library only.
#pragma once

#include <endian.h>

#include <cerrno>
#include <span>

#include "acl/acl.h"

namespace acl_layout {

inline constexpr std::uint32_t PERMISSION_BITS = 0xFFFFFF;
inline constexpr std::uint32_t MAX_COUNT = 0xFFFF;  // the count has 16 bits
inline constexpr std::uint16_t MAX_VERSION = 1;

[[nodiscard]] inline int fail(int error) {
    errno = error;
    return -1;
}

[[nodiscard]] inline std::uint32_t tag_of(const tvo_acl_entry &entry) {
    return le32toh(entry.tag_and_permissions) >> 24;
}
[[nodiscard]] inline std::uint32_t permissions_of(const tvo_acl_entry &entry) {
    return le32toh(entry.tag_and_permissions) & PERMISSION_BITS;
}
[[nodiscard]] inline std::uint32_t qualifier_of(const tvo_acl_entry &entry) {
    return le32toh(entry.qualifier);
}
[[nodiscard]] inline bool is_named(std::uint32_t tag) {
    return tag == TVO_ACL_USER || tag == TVO_ACL_GROUP;
}

inline void store(tvo_acl_entry &entry, std::uint32_t tag, std::uint32_t permissions) {
    entry.tag_and_permissions = htole32(tag << 24 | (permissions & PERMISSION_BITS));
}
inline void store_qualifier(tvo_acl_entry &entry, std::uint32_t id) {
    entry.qualifier = htole32(id);
}

[[nodiscard]] inline std::uint32_t count_of(const tvo_acl_external &external) {
    return le16toh(external.count);
}
inline void store_count(tvo_acl_external &external, std::uint32_t count) {
    external.count = htole16(static_cast<std::uint16_t>(count));
    external.size = htole32(static_cast<std::uint32_t>(sizeof external + count * sizeof(tvo_acl_entry)));
}

[[nodiscard]] inline std::span<tvo_acl_entry> entries_of(tvo_acl_external &external) {
    return {reinterpret_cast<tvo_acl_entry *>(&external + 1), count_of(external)};
}
[[nodiscard]] inline std::span<const tvo_acl_entry> entries_of(const tvo_acl_external &external) {
    return {reinterpret_cast<const tvo_acl_entry *>(&external + 1), count_of(external)};
}

}  // namespace acl_layout
