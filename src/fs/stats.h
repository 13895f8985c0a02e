// The statistics that -s prints after a build.
#pragma once

// The generic block, unless the type opted out, then the type's own.
void mktfs_print_stats();
