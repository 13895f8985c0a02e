#include <cerrno>
#include <cstdio>
#include <new>

#include "driver/cmdline.h"

int main(int argc, char **argv) {
    try {
        return mktfs_main(argc, argv);
    } catch (const std::bad_alloc &) {
        std::fputs("mktfs: out of memory\n", stderr);
        return ENOMEM;
    }
}
