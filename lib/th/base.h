// Conversion between bytes and their hexadecimal digits.  Complete interface of the codec;
// mktfs encodes with it, and decodes salts.
#pragma once

#include <cstddef>
#include <cstdint>

enum th_base_kind : std::uint32_t {
    TH_BASE_HEX = 1,  // the only one
};

// Bit 63: the text has no terminating NUL.
inline constexpr std::uint64_t TH_BASE_RAW = std::uint64_t{1} << 63;
// The low two bits: the case of the digits.  Without them an encoder writes
// lower case and a decoder reads both; both bits together are for decoding only.
inline constexpr std::uint64_t TH_BASE_LOWER = 1;
inline constexpr std::uint64_t TH_BASE_UPPER = 2;
inline constexpr std::uint64_t TH_BASE_CASE_MASK = TH_BASE_LOWER | TH_BASE_UPPER;

struct th_base_params {
    std::uint32_t kind = TH_BASE_HEX;
    std::uint64_t flags = 0;
};

enum th_base_direction : int {
    TH_BASE_ENCODE,
    TH_BASE_DECODE,
};

// Lengths are in bytes.  On entry they hold the room at `out` and the input's
// length, on return what was written and used.  With a null `out` only the
// length that the whole output needs is stored in `out_length`.
//
// Each returns 0 or an error number, which is also in errno then.  EINVAL: null
// argument or unknown flag; EOPNOTSUPP: another kind; EOVERFLOW: the needed
// length does not fit; the lengths are unchanged after these.  ENOBUFS: no room
// for all of the input; what fits was converted.
int th_base_convert(th_base_direction direction, void *out, std::size_t *out_length, const void *in,
                    std::size_t *in_length, const th_base_params *params);

// The written length includes the NUL unless TH_BASE_RAW is set.
int th_base_encode(char *out, std::size_t *out_length, const void *in, std::size_t *in_length,
                   const th_base_params *params);

// Unless TH_BASE_RAW is set a NUL ends the input and counts as used.  EBADMSG: a
// character that is no digit of the case asked for; EMSGSIZE: an odd number of
// digits.  What stands before the fault was converted.
int th_base_decode(void *out, std::size_t *out_length, const char *in, std::size_t *in_length,
                   const th_base_params *params);

// Writes 2 * length lower-case digits and a NUL to `out`.  Cannot fail.
void th_base_hex(const void *bytes, std::size_t length, char *out);
