#include "info/cmdline.h"

int main(int argc, char **argv) {
    return ttdinfo_main(argc, argv);
}
