// The program ttdinfo: shows, proves and plans images.
#pragma once

// The exit status: 0, 1 for wrong usage, else the error number of the first step
// that failed or of the first problem of the image.
[[nodiscard]] int ttdinfo_main(int argc, char **argv);
