// The credrelay Bundle: record types build on it, but none has a field of a type of its.
#include "../common/field.hpp"

PLATFORM_BUNDLE(credrelay)
