// Extraction of any bytes: the folder that was asked for holds at most the inner
// image, taken from the start of the file, and nothing appears beside it; a run that
// fails leaves no folder, or the one that was there.
#include <string>

#include "base/log.h"
#include "driver/modes.h"
#include "fs/filesystem.h"
#include "inputs.h"
#include "support/require.h"
#include "support/temp_dir.h"
#include "ttd/ttd_type.h"

namespace fs = std::filesystem;
using names = std::vector<std::string>;

static names entries_of(const std::string &folder) {
    names found;
    for (const auto &entry : fs::directory_iterator(folder))
        found.push_back(entry.path().filename());
    return found;
}

static void check(const image_bytes &image, bool occupied, bool force) {
    static const temp_dir work;
    const std::string out = work / "out";
    fs::remove_all(out);
    if (occupied)
        work.file("out/old", "contents");
    const memory_file input(image.data(), image.size());
    const int err = mktfs_run_extract(
        {.backend = mktfs_get_backend(), .output = out.c_str(), .input = input.path(), .force = force});
    mktfs_filesystem &record = *mktfs_get_filesystem();
    if (record.priv != nullptr)  // left to the end of the process
        mktfs_filesystem_extract_finit(&record);
    record = {};
    require(entries_of(work.path()).size() <= 1);
    if (occupied && !force)
        require(err == EEXIST && entries_of(out) == names{"old"});
    else
        require(err == 0 ? entries_of(out) == names{"fs.img"} : !fs::exists(out));
    if (err == 0) {
        const std::string inner = read_file(out + "/fs.img");
        require(inner.size() <= image.size() && std::memcmp(inner.data(), image.data(), inner.size()) == 0);
    }
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    mktfs_register_log_fct(log_nothing);
    mktfs_set_backend(ttd_backend());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const image_input input(data, size);
    check(input.choose(3) ? image_bytes(data, data + size) : input.image, input.choose(1), input.choose(2));
    return 0;
}
