// Order, validity, mask and file mode of access control lists.
#pragma once

#include "acl/acl.h"

// Sorts by tag, named entries of one tag by id.
void tvo_acl_posix_sort_np(tvo_acl_external *external);
// Whether a sorted external form is a complete list.  Returns 0 or the error
// number itself: EOPNOTSUPP for an unknown version, EINVAL.
[[nodiscard]] int tvo_acl_posix_check_np(const tvo_acl_external *external);
// Sorts the list, then checks it.
[[nodiscard]] int tvo_acl_valid(tvo_acl *acl);
// Writes the union of the user, owning group and group permissions into the mask entry;
// adds that entry, before the first "other" entry, when there is none.
[[nodiscard]] int tvo_acl_calc_mask(tvo_acl **acl);
// Brings a list and a file mode together.  On success `mode` has the permission bits of the
// list's owner, group and other entries, and `result` is a new, complete list, or null when
// the mode alone says everything (no list given, or one without named entries and mask).
// `message`, which may be null, receives a static text.  On failure `result` is null and
// `mode` unchanged.
[[nodiscard]] int tvo_acl_complete(const tvo_acl *acl, tvo_acl **result, std::uint32_t *mode,
                                   const char **message);
