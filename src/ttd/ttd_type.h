// The ttd filesystem type, "TAV Trusted Disk".
#pragma once

#include "fs/backend_record.h"

[[nodiscard]] const mktfs_backend *ttd_backend();
