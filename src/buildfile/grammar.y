/* The statements of a build file.  Each action is one call into parser.cc, which
   takes over the token texts.

   The generated parser reads a token ahead only where the rule is not yet decided,
   and the positions in messages follow from that: an object is made right after
   its keyword, and whatever ends with a value or a second path acts at its own
   last token. */
%code {
#include <cstdlib>

#include "buildfile/parser.h"
#include "buildfile/parser_actions.h"
#include "buildfile/scanner.h"
#include "fs/inode_record.h"
}

%define api.prefix {base_}
%define api.token.prefix {BASE_}

%union {
    char *text;  // allocated with malloc; null for an empty quoted string
}
%destructor { std::free($$); } <text>

%token OPTION FILE DIR LINK HLINK
%token UID GID MODE MTIME ACL
%token <text> NAME VALUE PATH CONTENTS

%%

build_file:
    %empty
    | statements
    ;

statements:
    statement
    | statements statement
    ;

statement:
    option_statement
    | file_statement
    | dir_statement
    | link_statement
    | hlink_statement
    ;

option_statement:
    '[' OPTION option_attributes ']'
    ;

option_attributes:
    option_attribute
    | option_attributes option_attribute
    ;

option_attribute:
    owner
    | group
    | time
    | generic
    ;

file_statement:
    '[' FILE { base_begin_object(MKTFS_INODE_FILE); } object_attributes ']' file_target
    ;

dir_statement:
    '[' DIR { base_begin_object(MKTFS_INODE_DIR); } object_attributes ']' PATH
        { base_place_object($6, nullptr); }
    ;

object_attributes:
    %empty
    | object_attributes object_attribute
    ;

object_attribute:
    owner
    | group
    | mode
    | acl
    | generic
    ;

file_target:
    link_target
    | PATH '=' CONTENTS     { base_place_contents($1, $3); }
    ;

link_statement:
    '[' LINK { base_begin_object(MKTFS_INODE_LINK); } link_attributes ']' link_target
    ;

link_attributes:
    %empty
    | link_attributes link_attribute
    ;

link_attribute:
    owner
    | group
    ;

link_target:
    PATH                    { base_place_object($1, nullptr); }
    | two_paths
    ;

hlink_statement:
    '[' HLINK { base_begin_object(MKTFS_INODE_HLINK); } ']' two_paths
    ;

two_paths:
    PATH '=' PATH           { base_place_object($1, $3); }
    ;

owner:
    UID '=' VALUE           { base_set_owner($3); }
    ;

group:
    GID '=' VALUE           { base_set_group($3); }
    ;

mode:
    MODE '=' VALUE          { base_set_mode($3); }
    ;

acl:
    ACL '=' VALUE           { base_set_acl($3); }
    ;

time:
    MTIME '=' VALUE         { base_set_mtime($3); }
    ;

generic:
    NAME '=' VALUE          { base_set_attribute($1, $3); }
    | NAME                  { base_set_attribute($1, nullptr); }
    ;
