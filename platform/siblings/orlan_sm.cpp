// The orlan_sm Bundle: the authentication domain and the session manager's objects, which are numbers.
#include "../common/traits.hpp"

PLATFORM_TYPE_INFO(sm_auth_domain, "orlan_sm", "enum", 16)
PLATFORM_TYPE_INFO(sess_mgr_conn_hdl, "orlan_sm", "type", 24)
PLATFORM_TYPE_INFO(sess_mgr_client_hdl, "orlan_sm", "type", 24)
PLATFORM_TYPE_INFO(sess_mgr_session_label, "orlan_sm", "type", 24)
PLATFORM_TYPE_INFO(sess_mgr_authorize_result, "orlan_sm", "type", 24)
PLATFORM_BUNDLE(orlan_sm)

namespace {

using namespace platform;

// Wire: variant byte, u_int32.
struct AuthDomain : Wrapped<sm_auth_domain, uint32_t> {
    static constexpr char name[] = "sm_auth_domain";
    static constexpr Shape shape = Shape::enumeration;
    static constexpr const zur_type_info& type_info() { return _sm_auth_domain_type_info_internal; }
};

} // namespace

PLATFORM_ENUM(sm_auth_domain, AuthDomain)

// Wire: the number.
#define SESSION_OBJECT(type, c_type)                                                                                   \
    namespace {                                                                                                        \
    struct Trait_##type : Wrapped<type, c_type> {                                                                      \
        static constexpr char name[] = #type;                                                                          \
        static constexpr Shape shape = Shape::record;                                                                  \
        static constexpr bool moves = true;                                                                            \
        static constexpr const zur_type_info& type_info() { return _##type##_type_info_internal; }                     \
    };                                                                                                                 \
    }                                                                                                                  \
    PLATFORM_PLACED_RECORD(type, Trait_##type)                                                                         \
    void platform_##type##_write(zur_domain* D, uint32_t S, struct type* object, c_type value, uint32_t* st) {         \
        Field<Trait_##type>::write(D, S, object, value, st);                                                           \
    }                                                                                                                  \
    c_type platform_##type##_read(const struct type* object) {                                                         \
        return object->value;                                                                                          \
    }

SESSION_OBJECT(sess_mgr_conn_hdl, uint64_t)
SESSION_OBJECT(sess_mgr_client_hdl, uint64_t)
SESSION_OBJECT(sess_mgr_session_label, uint64_t)
SESSION_OBJECT(sess_mgr_authorize_result, uint32_t)
