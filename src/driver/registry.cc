#include "driver/registry.h"

#include <string_view>

#include "driver/test_type.h"
#include "ttd/ttd_type.h"

constinit const mktfs_backend_row backends[] = {
    {.name = "ttd", .get = ttd_backend, .description = "TAV Trusted Disk", .listed = 1},
    {.name = "test", .get = test_backend, .description = "MKTFS Test Backend", .listed = 0},
    {},
};

const mktfs_backend *mktfs_find_backend(const char *argument) {
    for (const mktfs_backend_row *row = backends; row->name; ++row) {
        if (std::string_view(argument).starts_with(row->name))
            return row->get();
    }
    return nullptr;
}
