// The help that the command line prints.
#pragma once

// Prints the usage text on standard output: the general part when `full` is
// nonzero, then the options of the selected type, or the list of types when none
// is selected.
void mktfs_usage(int full);
