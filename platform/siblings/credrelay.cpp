// The credrelay Bundle: record types depend on it, but no field is of one of its types.
#include "../common/field.hpp"

PLATFORM_BUNDLE(credrelay)
