// The program ttdsign: signs images that exist already, here or on another machine.
#pragma once

// The exit status: 0, 1 for wrong usage, else the error number of the first step that
// failed.
[[nodiscard]] int ttdsign_main(int argc, char **argv);
