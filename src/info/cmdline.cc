#include "info/cmdline.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <span>

#include "base/cleanup.h"
#include "base/hex.h"
#include "base/json.h"
#include "base/long_options.h"
#include "info/json.h"
#include "info/keys.h"
#include "info/output.h"
#include "info/plan.h"
#include "info/screen.h"
#include "info/text.h"
#include "info/verify.h"
#include "tcrypto/tcrypto.h"
#include "th/log.h"
#include "th/str.h"
#include "ttd/engine_log.h"
#include "ttd/image_file.h"

namespace {

constexpr char usage_text[] =
    "usage: ttdinfo [OPTION...] IMAGE\n"
    "       ttdinfo --verify (--key KEY... | --without-signature-check) [OPTION...] IMAGE...\n"
    "       ttdinfo --plan SIZE --block BYTES --digest NAME [--partition SIZE] [--json]\n"
    "\n"
    "Prints what the superblock of a ttd image says.  Only the last 4096 bytes are read:\n"
    "no block of the image is proven (--verify does that).\n"
    "\n"
    "  --json                  print a JSON object\n"
    "  --root-hash             print the root hash and nothing else\n"
    "  --min-rollback N        refuse an anti-rollback version below N\n"
    "  --verify-signature KEY  check the signature of the superblock with a PEM public key\n"
    "\n"
    "  --verify                prove whole images, a line for each\n"
    "  --key KEY               PEM public key; with several, any may prove the signature\n"
    "  --without-signature-check\n"
    "                          prove the blocks only; the status is then 61 at best\n"
    "\n"
    "  --plan SIZE             calculate the image of an inner image of SIZE bytes\n"
    "  --block BYTES           block size, a power of two from 512 to 32768\n"
    "  --digest NAME           digest of the tree, as for mktfs ttd -H\n"
    "  --partition SIZE        partition that it is for\n"
    "                          sizes: a number of bytes, or with K, M, G or T\n"
    "\n"
    "  -h, --help              print this help\n"
    "  --version               print the version\n";

// What is printed about an image that was read.
enum class output_kind {
    TEXT,
    JSON,
    ROOT_HASH,
};

struct settings : mktfs_option_state {
    output_kind output = output_kind::TEXT;
    const char *min_rollback = nullptr;
    const char *public_key = nullptr;
    std::span<char *const> images;
    // --verify
    std::unique_ptr<const char *[]> keys;  // paths
    std::size_t key_count = 0;
    // --plan
    ttdinfo_plan plan;
};

int wrong_usage(const char *text) {
    std::fprintf(stderr, "ttdinfo: %s\n", text);
    return MKTFS_USAGE_ERROR;
}

template <output_kind Kind>
int set_output(settings &to, const char *) {
    if (to.output != output_kind::TEXT && to.output != Kind)
        return wrong_usage("--json and --root-hash exclude each other");
    to.output = Kind;
    return 0;
}

int set_min_rollback(settings &to, const char *version) {
    std::uint64_t number = 0;
    to.min_rollback = version;
    return th_str_to_uint64(version, 10, &number) != 0 ? wrong_usage("--min-rollback takes a decimal number")
                                                       : 0;
}

int set_public_key(settings &to, const char *path) {
    to.public_key = path;
    return 0;
}

int add_key(settings &to, const char *path) {
    to.keys[to.key_count++] = path;
    return 0;
}

template <auto Size>
int set_size(settings &to, const char *text) {
    std::uint64_t &size = to.plan.*Size;
    return th_str_to_bytes(text, &size) != 0 || size == 0
               ? wrong_usage("a size is a number of bytes above 0, or with K, M, G or T")
               : 0;
}

int set_block_size(settings &to, const char *text) {
    std::uint64_t size = 0;
    if (th_str_to_bytes(text, &size) != 0 || !ttd_is_block_size(size))
        return wrong_usage("--block takes a power of two from 512 to 32768");
    to.plan.block_size = static_cast<std::uint32_t>(size);
    return 0;
}

int set_digest(settings &to, const char *name) {
    to.plan.hashtype = ttd_hash_type(name);
    return to.plan.hashtype != 0 ? 0 : wrong_usage("unknown digest, see mktfs ttd -h");
}

enum option_bit : unsigned {
    OPTION_JSON = 1 << 0,
    OPTION_ROOT_HASH = 1 << 1,
    OPTION_MIN_ROLLBACK = 1 << 2,
    OPTION_VERIFY_SIGNATURE = 1 << 3,
    OPTION_VERIFY = 1 << 4,
    OPTION_KEY = 1 << 5,
    OPTION_WITHOUT_SIGNATURE_CHECK = 1 << 6,
    OPTION_PLAN = 1 << 7,
    OPTION_BLOCK = 1 << 8,
    OPTION_DIGEST = 1 << 9,
    OPTION_PARTITION = 1 << 10,
};

constexpr mktfs_long_option<settings> options[] = {
    {"json", OPTION_JSON, no_argument, set_output<output_kind::JSON>},
    {"root-hash", OPTION_ROOT_HASH, no_argument, set_output<output_kind::ROOT_HASH>},
    {"min-rollback", OPTION_MIN_ROLLBACK, required_argument, set_min_rollback},
    {"verify-signature", OPTION_VERIFY_SIGNATURE, required_argument, set_public_key},
    {"verify", OPTION_VERIFY, no_argument},
    {"key", OPTION_KEY, required_argument, add_key},
    {"without-signature-check", OPTION_WITHOUT_SIGNATURE_CHECK, no_argument},
    {"plan", OPTION_PLAN, required_argument, set_size<&ttdinfo_plan::size>},
    {"block", OPTION_BLOCK, required_argument, set_block_size},
    {"digest", OPTION_DIGEST, required_argument, set_digest},
    {"partition", OPTION_PARTITION, required_argument, set_size<&ttdinfo_plan::partition>},
};

constexpr unsigned PLAN_OPTIONS = OPTION_PLAN | OPTION_BLOCK | OPTION_DIGEST;
constexpr unsigned KEY_OPTIONS = OPTION_KEY | OPTION_WITHOUT_SIGNATURE_CHECK;

// Each of the three things that can be asked for takes options of its own.
int check_options(const settings &with) {
    const auto takes_only = [&with](unsigned allowed) { return (with.given & ~allowed) == 0; };
    if ((with.given & OPTION_PLAN) != 0) {
        if (!takes_only(PLAN_OPTIONS | OPTION_PARTITION | OPTION_JSON) || !with.images.empty())
            return wrong_usage("--plan takes --block, --digest, --partition and --json, and no image");
        return (with.given & PLAN_OPTIONS) == PLAN_OPTIONS ? 0
                                                           : wrong_usage("--plan needs --block and --digest");
    }
    if (with.images.empty())
        return wrong_usage("missing image, see --help");
    if ((with.given & OPTION_VERIFY) != 0) {
        if (!takes_only(OPTION_VERIFY | KEY_OPTIONS | OPTION_MIN_ROLLBACK | OPTION_JSON))
            return wrong_usage("--verify takes --key, --without-signature-check, --min-rollback and --json");
        const unsigned keys = with.given & KEY_OPTIONS;
        return keys != 0 && keys != KEY_OPTIONS
                   ? 0
                   : wrong_usage("--verify needs either --key or --without-signature-check");
    }
    if (with.images.size() != 1)
        return wrong_usage("more than one image, see --help");
    return takes_only(OPTION_JSON | OPTION_ROOT_HASH | OPTION_MIN_ROLLBACK | OPTION_VERIFY_SIGNATURE)
               ? 0
               : wrong_usage("an option belongs to --verify or --plan, see --help");
}

int parse(int argc, char **argv, settings &to) {
    to.keys.reset(new (std::nothrow) const char *[static_cast<std::size_t>(argc)]);
    if (!to.keys)
        return ENOMEM;
    const char *version = "ttdinfo (mktfs) " MKTFS_VERSION "\n";
    if (const int err = mktfs_read_options(argc, argv, options, usage_text, version, to);
        err != 0 || to.message)
        return err;
    to.images = {argv + optind, static_cast<std::size_t>(argc - optind)};
    return check_options(to);
}

int out_of_memory() {
    std::fputs("ttdinfo: out of memory\n", stderr);
    return ENOMEM;
}

// ---- A superblock

// The root hash of a refused image is not printed: a script might use it.
void print_report(const ttdinfo_report &report, output_kind kind, std::FILE *out) {
    if (kind == output_kind::JSON)
        return ttdinfo_print_json(report, out);
    if (kind == output_kind::TEXT) {
        ttdinfo_print_text(report, out);
        if (const unsigned columns = ttdinfo_columns(); columns != 0)
            ttdinfo_draw_layout(report, columns, out);
        return;
    }
    if (report.problem_count == 0) {
        mktfs_write_hex(ttdinfo_root_hash(report), out);
        std::fputs("\n", out);
    }
}

void print_problems(const ttdinfo_report &report, const char *path) {
    for (std::size_t i = 0; i < report.problem_count; ++i)
        std::fprintf(stderr, "ttdinfo: %s: %s\n", path, report.problems[i].text);
}

int show_image(const settings &with) {
    const char *path = with.images.front();
    const std::unique_ptr<ttdinfo_report> report(new (std::nothrow) ttdinfo_report);
    ttdinfo_output output;
    if (!report || !output.file())
        return out_of_memory();
    ttd_image_file image;
    const int unreadable = ttdinfo_open(path, &image, report.get());
    int refusal = unreadable;
    if (unreadable == 0) {
        report->public_key = with.public_key;
        report->min_rollback = with.min_rollback;
        refusal = ttdinfo_examine(report.get());
        print_report(*report, with.output, output.file());
    }
    print_problems(*report, path);
    const int err = output.write();
    return refusal != 0 ? refusal : err;
}

// ---- --verify

// Prints the result for each image as soon as it is known, JSON at the end.
int prove_image(const settings &with, const ttdinfo_keys &keys, const char *path, mktfs_json *images) {
    const std::unique_ptr<ttdinfo_proof> proof(new (std::nothrow) ttdinfo_proof);
    ttdinfo_output output;
    if (!proof || !output.file())
        return out_of_memory();
    const unsigned columns = images ? 0 : ttdinfo_columns();
    proof->path = path;
    proof->report.min_rollback = with.min_rollback;
    proof->map_cells = columns != 0 ? ttdinfo_map_cells(columns) : 0;
    ttdinfo_prove(keys, proof.get());
    int err = 0;
    if (images) {
        ttdinfo_add_json(*proof, images);
    } else {
        ttdinfo_print_proof(*proof, output.file());
        ttdinfo_draw_damage(*proof, output.file());
        err = output.write();
    }
    return proof->status != 0 ? proof->status : err;
}

// Every image is checked; the first failure is the result.
int prove_images(const settings &with, const ttdinfo_keys &keys, mktfs_json *images) {
    int result = 0;
    for (const char *path : with.images)
        if (const int err = prove_image(with, keys, path, images); result == 0)
            result = err;
    return result;
}

int prove_to_json(const settings &with, const ttdinfo_keys &keys) {
    ttdinfo_output output;
    if (!output.file())
        return out_of_memory();
    int result = 0;
    {
        mktfs_json whole(output.file());
        ttdinfo_begin_json(&whole);
        mktfs_json images = whole.array("images");
        result = prove_images(with, keys, &images);
    }
    const int err = output.write();
    return result != 0 ? result : err;
}

// The result already says what the engine complains about.
[[gnu::format(printf, 2, 3)]] int keep_silent(int /*level*/, const char * /*format*/, ...) {
    return 0;
}

int verify(const settings &with) {
    ttd_register_log_fct(keep_silent);
    ttdinfo_keys keys;
    if (const int err = keys.load({with.keys.get(), with.key_count}); err != 0)
        return err;
    return with.output == output_kind::JSON ? prove_to_json(with, keys) : prove_images(with, keys, nullptr);
}

int run_verify(const settings &with) {
    mktfs_cleanup_install();
    // Each key is tried as every kind in turn, and the library would log each failure.
    (void)th_log_update_config("tc_openssl:stderr=none");
    if (const int err = tcrypto_init(0, nullptr); err != TCRYPTO_OK) {
        std::fprintf(stderr, "ttdinfo: failed to initialize crypto library (%s)\n", tcrypto_strerror(err));
        return EOPNOTSUPP;
    }
    const int err = verify(with);
    tcrypto_uninit();
    return err;
}

// ---- --plan

int show_plan(settings &with) {
    ttdinfo_output output;
    if (!output.file())
        return out_of_memory();
    const int refusal = ttdinfo_make_plan(&with.plan);
    if (refusal != 0 && refusal != ENOSPC)
        return refusal;
    const auto print = with.output == output_kind::JSON ? ttdinfo_print_plan_json : ttdinfo_print_plan;
    print(with.plan, output.file());
    const int err = output.write();
    return refusal != 0 ? refusal : err;
}

}  // namespace

int ttdinfo_main(int argc, char **argv) {
    settings with;
    if (const int err = parse(argc, argv, with); err != 0)
        return err;
    if (with.message)
        return ttdinfo_write(with.message, std::strlen(with.message));
    if ((with.given & OPTION_PLAN) != 0)
        return show_plan(with);
    return (with.given & OPTION_VERIFY) != 0 ? run_verify(with) : show_image(with);
}
