// Access control lists from texts: an accepted one survives its external form, a
// completed one is valid, and a refused completion changes nothing.
#include <cstring>
#include <string>
#include <vector>

#include "acl/check.h"
#include "acl/short_text.h"
#include "support/require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    tvo_acl *acl = nullptr;
    require((tvo_acl_from_short_text(&acl, text.c_str(), nullptr) == 0) == (acl != nullptr));
    if (!acl)
        return 0;

    const ssize_t length = tvo_acl_size(acl);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(length));
    require(tvo_acl_copy_ext(bytes.data(), acl, length) == length);
    const tvo_acl_ptr copy(tvo_acl_copy_int(bytes.data()));
    require(copy && std::memcmp(&copy->external, &acl->external, bytes.size()) == 0);

    tvo_acl_ptr completed;
    std::uint32_t mode = 0640;
    const int rc = tvo_acl_complete(acl, th_out(completed), &mode, nullptr);
    require(rc == 0 || (!completed && mode == 0640));
    require(!completed || (tvo_acl_valid(completed.get()) == 0 && (mode & TVO_ACL_MODE_HAS_ACL)));

    require(tvo_acl_calc_mask(&acl) == 0);
    (void)tvo_acl_valid(acl);
    tvo_acl_entry *entry = nullptr;
    while (tvo_acl_get_entry(acl, TVO_ACL_FIRST_ENTRY, &entry) == 1)
        require(tvo_acl_delete_entry(acl, entry) == 0);
    require(tvo_acl_size(acl) == sizeof(tvo_acl_external));
    tvo_acl_free(acl);
    return 0;
}
