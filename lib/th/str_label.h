// Labels that stand for a number, as steps of the number parser.  Used by this
// library only.
#pragma once

#include "th/str_parse.h"

// A user's or group's name, which takes the whole text; a signal's name.  ENOENT.
int th_str_user_label(th_str_request &request);
int th_str_group_label(th_str_request &request);
int parse_signo_label(th_str_request &request);
