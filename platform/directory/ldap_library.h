// What is called of the LDAP library, which only hosts with a directory need.
#ifndef PLATFORM_DIRECTORY_LDAP_LIBRARY_H
#define PLATFORM_DIRECTORY_LDAP_LIBRARY_H

#include <ldap.h>

#include "platform/include/late_library.h"

namespace korvmailserver::directory {

extern const LateLibrary ldap_library;

MDOMAIN_LATE_FUNCTION(ldap_library, ber_free);
MDOMAIN_LATE_FUNCTION(ldap_library, ber_memfree);
MDOMAIN_LATE_FUNCTION(ldap_library, ber_sockbuf_add_io);
MDOMAIN_LATE_FUNCTION(ldap_library, ber_sockbuf_ctrl);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_abandon_ext);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_connect);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_control_find);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_control_free);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_controls_free);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_create_page_control);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_dnfree);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_err2string);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_first_attribute);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_first_entry);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_first_reference);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_get_dn);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_get_option);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_get_values_len);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_initialize);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_memfree);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_msgfree);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_next_attribute);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_next_entry);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_parse_pageresponse_control);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_parse_result);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_result);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_sasl_bind_s);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_search_ext);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_set_option);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_start_tls_s);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_str2dn);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_unbind_ext_s);
MDOMAIN_LATE_FUNCTION(ldap_library, ldap_value_free_len);

}  // namespace korvmailserver::directory

#endif  // PLATFORM_DIRECTORY_LDAP_LIBRARY_H
