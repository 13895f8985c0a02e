#include "sign/cmdline.h"

int main(int argc, char **argv) {
    return ttdsign_main(argc, argv);
}
