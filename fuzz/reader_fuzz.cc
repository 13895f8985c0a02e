// The C library over any image, its tree made true on request: it reads the whole inner
// image exactly when a model proves all of it, and hands out no byte that is not the
// one at its place in the file.
#include <fcntl.h>

#include <cerrno>
#include <random>

#include "inputs.h"
#include "support/image_model.h"
#include "ttd/reader.h"

static constexpr std::size_t PAGE = 4096;

static bool is_zeros(const std::uint8_t *bytes, std::size_t length) {
    return std::all_of(bytes, bytes + length, [](std::uint8_t byte) { return byte == 0; });
}

static bool read_range(ttd_reader *reader, const image_bytes &image, std::uint64_t at, std::size_t length) {
    image_bytes bytes(length, 0xa5);
    const int err = ttd_reader_read(reader, bytes.data(), length, at);
    require(err == 0 || err == -EINVAL || err == -EIO);
    require(err != 0 || (at <= image.size() && length <= image.size() - at));
    require(err != 0 || std::equal(bytes.begin(), bytes.end(), image.data() + at));
    require(err == 0 || is_zeros(bytes.data(), length));
    return err == 0;
}

static void check_extent(ttd_reader *reader, const image_bytes &image, std::uint64_t at, std::uint64_t most) {
    std::uint64_t length = 0;
    int zeros = 0;
    if (ttd_reader_extent(reader, at, most, &length, &zeros) != 0)
        return;
    require(length > 0 && length <= most);
    require(zeros == 0 ||
            (at <= image.size() && length <= image.size() - at && is_zeros(image.data() + at, length)));
}

static bool reads_all(ttd_reader *reader, const image_bytes &image, unsigned seed) {
    ttd_reader_info info{};
    info.size = sizeof info;
    require(ttd_reader_get_info(reader, &info) == 0);
    std::minstd_rand random(seed);
    for (int i = 0; i < 8; ++i) {
        const std::uint64_t at = random() % (std::min<std::uint64_t>(info.image_size, image.size()) + 2);
        check_extent(reader, image, at, random() % (3 * PAGE));
        read_range(reader, image, at, random() % (3 * PAGE));
    }
    return info.image_size <= image.size() && read_range(reader, image, 0, info.image_size);
}

static void punch_holes(int descriptor, const image_bytes &image) {
    for (std::size_t at = 0; at + PAGE <= image.size(); at += PAGE)
        if (is_zeros(image.data() + at, PAGE))
            require(fallocate(descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(at),
                              PAGE) == 0);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    require(tcrypto_init(0, nullptr) == TCRYPTO_OK);  // kept up between the runs
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    constexpr const char *caches[] = {nullptr, "0", "max", "50%"};
    image_input input(data, size);
    input.superblock.sigtype = 3;
    input.superblock.sigsize = 64;
    if (input.choose(1))
        image_model(input.image, input.superblock).repair(input.superblock);
    input.store();
    const memory_file file(input.image.data(), input.image.size());
    punch_holes(file.descriptor(), input.image);
    ttd_reader_options options{};
    options.size = sizeof options;
    options.without_signature_check = 1;
    options.cache = caches[input.choices >> 4 & 3];
    ttd_reader *reader = nullptr;
    const int err = ttd_reader_open_fd(file.descriptor(), &options, &reader);
    require((err == 0) == (reader != nullptr));
    image_model model(input.image, input.superblock);
    if (const bool all = reader != nullptr && reads_all(reader, input.image, input.choices);
        model.is_well_formed())
        require(all == model.proves());
    ttd_reader_close(reader);
    return 0;
}
