#include "info/cmdline.h"

#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "info/image_tail.h"
#include "info/print.h"
#include "info/report.h"
#include "th/str.h"

namespace {

constexpr int USAGE_ERROR = 1;

constexpr char usage_text[] =
    "usage: ttdinfo [OPTION...] IMAGE\n"
    "\n"
    "Prints what the superblock of a ttd image says.  Only the last 4096 bytes are read:\n"
    "no block of the image is proven (mktfs ttd -y does that).\n"
    "\n"
    "  --json                  print a JSON object\n"
    "  --root-hash             print the root hash and nothing else\n"
    "  --min-rollback N        refuse an anti-rollback version below N\n"
    "  --verify-signature KEY  check the signature of the superblock with a PEM public key\n"
    "  -h, --help              print this help\n"
    "  --version               print the version\n";

// What is printed about an image that was read.
enum class output_kind {
    TEXT,
    JSON,
    ROOT_HASH,
};

struct settings {
    output_kind output = output_kind::TEXT;
    const char *message = nullptr;  // printed instead of working
    const char *min_rollback = nullptr;
    const char *public_key = nullptr;
    const char *image = nullptr;
};

enum option_code : int {
    OPTION_JSON = 256,
    OPTION_ROOT_HASH,
    OPTION_MIN_ROLLBACK,
    OPTION_VERIFY_SIGNATURE,
    OPTION_VERSION,
};

constexpr option long_options[] = {
    {"json", no_argument, nullptr, OPTION_JSON},
    {"root-hash", no_argument, nullptr, OPTION_ROOT_HASH},
    {"min-rollback", required_argument, nullptr, OPTION_MIN_ROLLBACK},
    {"verify-signature", required_argument, nullptr, OPTION_VERIFY_SIGNATURE},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, OPTION_VERSION},
    {},
};

int wrong_usage(const char *text) {
    std::fprintf(stderr, "ttdinfo: %s\n", text);
    return USAGE_ERROR;
}

int set_output(settings &to, output_kind kind) {
    if (to.output != output_kind::TEXT && to.output != kind)
        return wrong_usage("--json and --root-hash exclude each other");
    to.output = kind;
    return 0;
}

int set_min_rollback(settings &to, const char *version) {
    std::uint64_t number = 0;
    to.min_rollback = version;
    return th_str_to_uint64(version, 10, &number) != 0 ? wrong_usage("--min-rollback takes a decimal number")
                                                       : 0;
}

int apply_option(int code, settings &to) {
    switch (code) {
    case OPTION_JSON:
        return set_output(to, output_kind::JSON);
    case OPTION_ROOT_HASH:
        return set_output(to, output_kind::ROOT_HASH);
    case OPTION_MIN_ROLLBACK:
        return set_min_rollback(to, optarg);
    case OPTION_VERIFY_SIGNATURE:
        to.public_key = optarg;
        return 0;
    case 'h':
        to.message = usage_text;
        return 0;
    case OPTION_VERSION:
        to.message = "ttdinfo (mktfs) " MKTFS_VERSION "\n";
        return 0;
    default:  // getopt has said what is wrong
        return USAGE_ERROR;
    }
}

// Help and version end the command line: nothing behind them matters.
int parse(int argc, char **argv, settings &to) {
    for (int code; !to.message && (code = getopt_long(argc, argv, "h", long_options, nullptr)) != -1;)
        if (const int err = apply_option(code, to); err != 0)
            return err;
    if (to.message)
        return 0;
    if (argc - optind != 1)
        return wrong_usage(argc == optind ? "missing image, see --help" : "more than one image, see --help");
    to.image = argv[optind];
    return 0;
}

int write_all(const char *text, std::size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(STDOUT_FILENO, text, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0) {
            const int err = errno;
            std::fprintf(stderr, "ttdinfo: standard output: %s\n", std::strerror(err));
            return err;
        }
        text += written;
        length -= static_cast<std::size_t>(written);
    }
    return 0;
}

// An output that is collected in memory, so that it can be written in one piece and
// the error of that is known.
class collected_output {
public:
    collected_output() : file_(::open_memstream(&text_, &length_)) {}
    collected_output(const collected_output &) = delete;
    collected_output &operator=(const collected_output &) = delete;
    ~collected_output() {
        if (file_)
            std::fclose(file_);
        std::free(text_);
    }
    [[nodiscard]] std::FILE *file() { return file_; }
    [[nodiscard]] int write() {
        const bool failed = std::fclose(file_) != 0;
        file_ = nullptr;
        return failed ? ENOMEM : write_all(text_, length_);
    }

private:
    char *text_ = nullptr;
    std::size_t length_ = 0;
    std::FILE *file_;
};

// A root hash that something is wrong with is not handed to a script.
void print_report(const ttdinfo_report &report, output_kind kind, std::FILE *out) {
    if (kind == output_kind::JSON)
        return ttdinfo_print_json(report, out);
    if (kind == output_kind::TEXT)
        return ttdinfo_print_text(report, out);
    if (report.problem_count == 0) {
        ttdinfo_print_hex(ttdinfo_root_hash(report), out);
        std::fputs("\n", out);
    }
}

int read_image(const char *path, ttdinfo_report &report) {
    const int err = ttdinfo_read_tail(path, &report.engine.superblock, &report.file_size);
    if (err == EINVAL)
        std::fprintf(stderr, "ttdinfo: %s: no regular file or block device of at least %zu bytes\n", path,
                     TTD_SUPERBLOCK_SIZE);
    else if (err != 0)
        std::fprintf(stderr, "ttdinfo: %s: %s\n", path, std::strerror(err));
    return err;
}

int show_image(const settings &with) {
    const std::unique_ptr<ttdinfo_report> report(new (std::nothrow) ttdinfo_report);
    collected_output output;
    if (!report || !output.file()) {
        std::fputs("ttdinfo: out of memory\n", stderr);
        return ENOMEM;
    }
    if (const int err = read_image(with.image, *report); err != 0)
        return err;
    report->public_key = with.public_key;
    report->min_rollback = with.min_rollback;
    const int refusal = ttdinfo_examine(report.get());
    print_report(*report, with.output, output.file());
    for (std::size_t i = 0; i < report->problem_count; ++i)
        std::fprintf(stderr, "ttdinfo: %s: %s\n", with.image, report->problems[i].text);
    const int err = output.write();
    return refusal != 0 ? refusal : err;
}

}  // namespace

int ttdinfo_main(int argc, char **argv) {
    settings with;
    if (const int err = parse(argc, argv, with); err != 0)
        return err;
    return with.message ? write_all(with.message, std::strlen(with.message)) : show_image(with);
}
