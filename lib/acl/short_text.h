// The short text of access control lists: "u::rw-,u:1000:r,g::r--,o::r--".
#pragma once

#include "acl/acl.h"

// A new list with the entries in the order of the text, neither sorted nor
// validated.  `message`, which may be null, receives a static text, "Ok" on
// success.  EINVAL for a malformed text (`acl` is then null), ENOMEM.
[[nodiscard]] int tvo_acl_from_short_text(tvo_acl **acl, const char *text, const char **message);
