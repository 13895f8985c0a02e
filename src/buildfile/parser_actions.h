// What the grammar calls as it recognises a construct.  Texts were allocated with
// malloc and are taken over; null stands for an empty quoted string.
#pragma once

#include <cstdint>

// The current object, which the attributes that follow describe.
void base_begin_object(std::int32_t type);

// An attribute of the current object, or without one an image-wide option.
void base_set_owner(char *value);
void base_set_group(char *value);
void base_set_mtime(char *value);
void base_set_attribute(char *name, char *value);  // value null: none was written

// Attributes of the current object; ignored without one.
void base_set_mode(char *value);
void base_set_acl(char *value);

// Places the current object in the tree; there is none afterwards.  `source` is
// null when none was written.
void base_place_object(char *path, char *source);
void base_place_contents(char *path, char *contents);
