#include <orlan_epm.h>
#include <platform/domain.h>
#include <stdio.h>

int main(void) {
    zur_domain* D = platform_domain_create(NULL);
    uint32_t S = ZUR_NO_SET, st = 0;
    char text[1024] = {0};
    struct orlan_ial_svm_acl_apply* apply = orlan_ial_svm_acl_apply_create(D, S);
    orlan_ial_svm_acl_apply_acl_name_set(D, S, apply, "guest-in", 8, &st);
    orlan_ial_svm_acl_apply_priority_set_value(D, S, apply, 5, &st);
    orlan_ial_svm_acl_apply_print(D, S, text, 0, "apply", apply, sizeof text, &st);
    fputs(text, stdout);
    orlan_ial_svm_acl_apply_destroy(D, S, apply);
    platform_domain_destroy(D);
    return st != 0;
}
