// The three mutexes of the library.  Whoever needs several takes them in the
// order in which they are declared here.  A failure is logged.
#pragma once

#include "th/lock.h"

extern th_mutex tcrypto_init_mutex;     // the reference count and the configuration path
extern th_mutex tcrypto_library_mutex;  // the plugin list, tags and binding
extern th_mutex tcrypto_plugin_mutex;   // algorithm lists and live contexts of every plugin
