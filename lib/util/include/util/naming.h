// naming.h: the naming service as the public repository of certificates and key packages. Every user
// and every host has a context there, with three attributes.
//
// A name is a host's dotted address, a full name (it begins with ".../"), or else a user's login
// name. What qelp.h says of the naming service, and the statuses there, hold here too.
#ifndef UTIL_NAMING_H
#define UTIL_NAMING_H

#include <span>

#include <qel/qelp.h>

// ---- Attributes (naming.cpp)

// Values: a distinguished name as text, without the NUL; encoded certificates; encoded key packages.
inline constexpr char dn_attribute[] = "onc_distinguished_name";
inline constexpr char certificates_attribute[] = "onc_certificates";
inline constexpr char key_packages_attribute[] = "onc_key_packages";

// Each reads the values of an attribute.
//   list_out   a new list in the provider's order; the caller frees it (__qel_free_item_list). Behind
//              the bytes of a distinguished name stands a NUL that length does not count. Null, and
//              count 0, on failure.
// QEL_ERR_BAD_PARAM: a null argument. QEL_ERR_UNKNOWN_USER: there is no such name.
// QEL_ERR_NO_CERT, QEL_ERR_NO_DN, QEL_ERR_NO_KEYPKG: the attribute is not there or has no values, or
// there is no such name and the attribute is the distinguished name. QEL_ERR_XFN, QEL_ERR_NO_MEMORY.
QelStatus dsv_get_credentials_given_user_name(const char *name, const char *attribute,
                                              QelItemList **list_out, uint32_t *count_out);
QelStatus dsv_get_certs_given_user_name(const char *name, QelItemList **list_out,
                                        uint32_t *count_out);
QelStatus dsv_get_keys_given_user_name(const char *name, QelItemList **list_out,
                                       uint32_t *count_out);

enum class NamingChange { add = 1, replace = 2, remove = 3 };

// Changes one value of an attribute. Between reading and writing nobody else's change is lost: where
// there was one, a value is added to or removed from what is stored by then, in one step, and replacing
// begins again. An attribute left without values is removed. The distinguished name of a full name is
// not changed, with success.
//   value         null, for removing only: all values. It may have no bytes.
//   old_value     what replacing removes, after value was added: where the two are the same, none is
//                 left. It need not be there.
// Adding makes the context of the name where there is none. Removing what is not there succeeds.
// QEL_ERR_BAD_PARAM: a null name or attribute, no value, no old value to replace, no such change; a
// new attribute that is none of the three. QEL_ERR_UNKNOWN_USER: a host's address without name, an
// empty or malformed name. QEL_ERR_XFN: nothing to replace a value of; the naming service failed.
// QEL_ERR_NO_MEMORY.
QelStatus dsv_modify_attribute(const char *name, const char *attribute, NamingChange change,
                               const uint8_t *value, uint32_t length, const uint8_t *old_value,
                               uint32_t old_length);
QelStatus dsv_add_attribute(const char *name, const char *attribute, const uint8_t *value,
                            uint32_t length);
QelStatus dsv_delete_cn_name(const char *name, const uint8_t *value, uint32_t length);
QelStatus dsv_delete_certificates(const char *name, const uint8_t *value, uint32_t length);
QelStatus dsv_delete_key_pkg(const char *name, const uint8_t *value, uint32_t length);
QelStatus dsv_modify_certificates(const char *name, const uint8_t *value, uint32_t length,
                                  const uint8_t *old_value, uint32_t old_length);
QelStatus dsv_modify_key_pkg(const char *name, const uint8_t *value, uint32_t length,
                             const uint8_t *old_value, uint32_t old_length);

// Adds a key package, in the place of old unless that is null, if the key packages of a name still are
// those that were read.
//   known      what was read, in its order; none: there was no such name or no key package.
//   overtaken  true: they no longer are, and nothing was done; QEL_ERR_XFN.
// Otherwise as dsv_modify_attribute.
QelStatus dsv_put_key_pkg(const char *name, std::span<const QelDataSetItem> known,
                          const QelDataSetItem *old, const uint8_t *value, uint32_t length,
                          bool *overtaken);

// Attempts at a change that others are faster with: pauses that grow, out of step with those of others, for
// ten seconds in all, as long as a store waits for its lock.
class Attempts {
public:
    Attempts();
    bool another(); // after a pause; false: it has been long enough

private:
    int64_t end_;
    unsigned count_ = 0;
};

// Does what says whether it was overtaken until it was not.
template <class Attempt> QelStatus until_first(const Attempt &attempt) {
    bool overtaken = false;
    QelStatus status = attempt(&overtaken);
    for (Attempts attempts; overtaken && attempts.another();)
        status = attempt(&overtaken);
    return status;
}

// Adds credentials to the entry of a name: its distinguished name, unless that is there, then the
// certificate, then the key package, up to the first failure.
//   dn            null: none.
//   certificate, package   encoded; null: none.
// QEL_ERR_BAD_PARAM: a null name. QEL_ERR_ENTRY_EXISTS: the name is registered under another
// distinguished name, or another entry holds this one. Otherwise as dsv_modify_attribute.
QelStatus dsv_add_user_certs_and_key_pkg(const char *name, const char *dn,
                                         const uint8_t *certificate, uint32_t certificate_length,
                                         const uint8_t *package, uint32_t package_length);
QelStatus dsv_add_user_certs(const char *name, const char *dn, const uint8_t *certificate,
                             uint32_t certificate_length);

// ---- Names, contexts and the choice of the back end (naming_setup.cpp)

enum class NameKind { none = 0, user = 1, host = 2, full = 3 };

// A null name is of no kind. A host's address is what inet_addr takes for one.
NameKind dsv_get_dsv_type(const char *name);

// The host's name up to its first dot, or the host's first IPv4 address in dotted form: a new string,
// which the caller frees; null when there is none.
char *dsv_get_hostname_from_ip_address(const char *address);
char *get_ip_from_hostname(const char *name);

// Chooses "nisplus", "nis" or "files" and takes it for set up. The first dsv_set_context goes back to
// files whatever was chosen before it. QEL_ERR_XFN: another word.
QelStatus dsv_set_naming_service(const char *word);

// Makes the process-wide handle of the context that names of a kind are found in, once; sets the
// naming service up where it is not. QEL_ERR_BAD_PARAM: no such kind. QEL_ERR_XFN. QEL_ERR_NO_MEMORY.
QelStatus dsv_set_context(NameKind kind);

// Sets the naming service up for the chosen back end with the platform's commands, and waits for
// them. What they did is not looked at; /etc/fn.conf is as it was. QEL_ERR_XFN: it cannot be kept
// safe or put back, or there can be no process. Processes take turns; the caller sees to it that no
// other thread is here.
QelStatus install_dsv();

#endif
