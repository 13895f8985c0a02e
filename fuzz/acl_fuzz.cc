// Access control lists from texts, and the operations on what comes out: a list
// that is accepted survives its external form, and a completed one is valid.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "buildfile/acl.h"

namespace {

void require(bool condition) {
    if (!condition)
        std::abort();
}

void round_trip(const tvo_acl *acl) {
    const ssize_t size = tvo_acl_size(acl);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    require(tvo_acl_copy_ext(bytes.data(), acl, size) == size);
    const tvo_acl_ptr copy(tvo_acl_copy_int(bytes.data()));
    require(copy != nullptr && tvo_acl_size(copy.get()) == size);
    require(std::memcmp(&copy->external, &acl->external, bytes.size()) == 0);
}

void complete(const tvo_acl *acl) {
    tvo_acl_ptr result;
    std::uint32_t mode = 0640;
    const int rc = tvo_acl_complete(acl, th_out(result), &mode, nullptr);
    require(rc == 0 || (result == nullptr && mode == 0640));
    require(result == nullptr || (tvo_acl_valid(result.get()) == 0 && (mode & TVO_ACL_MODE_HAS_ACL) != 0));
}

void delete_all(tvo_acl *acl) {
    tvo_acl_entry *entry = nullptr;
    while (tvo_acl_get_entry(acl, TVO_ACL_FIRST_ENTRY, &entry) == 1)
        require(tvo_acl_delete_entry(acl, entry) == 0);
    require(tvo_acl_size(acl) == sizeof(tvo_acl_external));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    tvo_acl_ptr acl;
    const int rc = tvo_acl_from_short_text(th_out(acl), text.c_str(), nullptr);
    require((rc == 0) == (acl != nullptr));
    if (acl == nullptr)
        return 0;
    round_trip(acl.get());
    complete(acl.get());
    tvo_acl *raw = acl.release();
    require(tvo_acl_calc_mask(&raw) == 0);
    acl.reset(raw);
    (void)tvo_acl_valid(acl.get());
    delete_all(acl.get());
    return 0;
}
