// The optional runs of primitives, for tests in which the runtime offers them.
#include "support/imports.hpp"

EPM_WATCHED(u_int8_marshal_run)
EPM_WATCHED(u_int8_unmarshal_run)
EPM_WATCHED(char_marshal_run)
EPM_WATCHED(char_unmarshal_run)
EPM_WATCHED(u_int32_marshal_run)
EPM_WATCHED(u_int32_unmarshal_run)
