// The optional runs of primitives, for tests in which the runtime offers them.
#include "support/imports.hpp"

#define EPM_WATCHED_RUNS(type) EPM_WATCHED(type##_marshal_run) EPM_WATCHED(type##_unmarshal_run)
EPM_WATCHED_RUNS(u_int8)
EPM_WATCHED_RUNS(char)
EPM_WATCHED_RUNS(u_int32)
