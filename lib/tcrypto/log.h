// The log contexts of the crypto library.  Each is defined in a source that the
// library cannot do without, so that a static link keeps it.
#pragma once

#include "th/log.h"

TH_LOG_CONTEXT_DECLARE(tcrypto_log);         // "tcrypto_static": core and keys
TH_LOG_CONTEXT_DECLARE(tcrypto_plugin_log);  // "tcrypto_plugin": providers and the registry
