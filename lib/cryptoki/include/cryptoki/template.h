// template.h: attribute templates, and their conversion to and from keys of the toolkit.
//
// A template is a heap array of attributes that owns the array and every value. Look-ups take the
// first entry of a type; later ones of the same type are never seen. Null arguments, a count of 0
// and a type whose top bit is set are CKR_DATA_INVALID, a type that the template lacks is
// CKR_ATTRIBUTE_TYPE_INVALID, a failed allocation CKR_HOST_MEMORY. Outputs are null after a
// failure.
#ifndef CRYPTOKI_TEMPLATE_H
#define CRYPTOKI_TEMPLATE_H

#include <memory>

#include <qel/cryptoki.h>
#include <toolkit/toolkit.h>

// ---- Entries

// Fills one attribute; the value is not copied. A length of 0 is refused too.
CK_RV bundle_attr(uint32_t type, void *value, uint32_t length, CK_ATTRIBUTE *attribute_out);
// Copies an attribute into an entry, which then owns its value.
CK_RV store_attr_in_template(CK_ATTRIBUTE *attributes, uint32_t index,
                             const CK_ATTRIBUTE *attribute);
// Stores a copy of an item as an entry.
CK_RV store_item_in_template(const toolkit::ITEM *item, uint32_t type, CK_ATTRIBUTE *attributes,
                             uint32_t index);

// Looks up the type that attribute holds, and gives value and length; the value stays the
// template's.
CK_RV get_attr_from_template(const CK_ATTRIBUTE *attributes, uint32_t count,
                             CK_ATTRIBUTE *attribute);
// The same as an item, which points into the template.
CK_RV get_item_from_template(const CK_ATTRIBUTE *attributes, uint32_t count, uint32_t type,
                             toolkit::ITEM *item_out);
// The same with a copy of the value, which the caller frees (free2_ITEM).
CK_RV read_item_from_template(const CK_ATTRIBUTE *attributes, uint32_t count, uint32_t type,
                              toolkit::ITEM *item_out);

// Zeroes and frees the values and the array, and nulls the caller's pointer. Nothing happens for
// null, or a count of 0 or less.
void free_template(CK_ATTRIBUTE **attributes, int32_t count);
// The values only; the entries are cleared.
void free2_template(CK_ATTRIBUTE *attributes, int32_t count);

struct FreeTemplate {
    int32_t count = 0;
    void operator()(CK_ATTRIBUTE *attributes) const { free_template(&attributes, count); }
};
using OwnedTemplate = std::unique_ptr<CK_ATTRIBUTE, FreeTemplate>;

inline OwnedTemplate own_template(CK_ATTRIBUTE *attributes, uint32_t count) {
    return OwnedTemplate(attributes, FreeTemplate{static_cast<int32_t>(count)});
}

// ---- Keys to templates
//
// The caller frees the new template (free_template). Entries come in the order of the CKA_
// constants, class and key type first: 10 for an RSA private key, 4 for a public one, 3 for a
// secret key. CKR_DATA_INVALID: an encoding or a key that the toolkit refuses.

// The object's own template. CKR_KEY_HANDLE_INVALID: a null object, or one without attributes.
CK_RV hKey_2_template(CK_OBJECT_HANDLE object, CK_ATTRIBUTE **template_out, uint32_t *count_out);

// From an encoded PrivateKeyInfo (PKCS#8).
CK_RV privateKeyInfoBer_2_template(const uint8_t *ber, uint32_t length, CK_ATTRIBUTE **template_out,
                                   uint32_t *count_out);
// From an encoded SubjectPublicKeyInfo (X.509).
CK_RV subjectPublicKeyInfoBer_2_template(const uint8_t *ber, uint32_t length,
                                         CK_ATTRIBUTE **template_out, uint32_t *count_out);
CK_RV pkcsRsaPrivate_2_PkcsRsaPrivateTemplate(const toolkit::A_PKCS_RSA_PRIVATE_KEY *key,
                                              CK_ATTRIBUTE **template_out, uint32_t *count_out);
CK_RV rsaKey_2_RsaKeyTemplate(const toolkit::A_RSA_KEY *key, CK_ATTRIBUTE **template_out,
                              uint32_t *count_out);
// key_type: one of the five CKK_ secret key types.
CK_RV secretKey_2_template(const uint8_t *octets, uint32_t length, uint32_t key_type,
                           CK_ATTRIBUTE **template_out, uint32_t *count_out);

// ---- Templates to keys
//
// Class, key type and numbers are checked in this order; another class or type is CKR_DATA_INVALID.
// The caller frees the result: encodings with free(), keys and items with their free_ function.

// Public RSA key to SubjectPublicKeyInfo; private RSA key to PrivateKeyInfo, which is secret.
CK_RV template_2_subjectPublicKeyInfoBer(const CK_ATTRIBUTE *attributes, uint32_t count,
                                         uint8_t **ber_out, uint32_t *length_out);
CK_RV template_2_privateKeyInfoBer(const CK_ATTRIBUTE *attributes, uint32_t count,
                                   uint8_t **ber_out, uint32_t *length_out);
// A private RSA key in Chinese-remainder form.
CK_RV template_2_RsaCrtKey(const CK_ATTRIBUTE *attributes, uint32_t count,
                           toolkit::A_RSA_CRT_KEY **key_out);
// Modulus, and the exponent of the class: public or private.
CK_RV template_2_RsaKey(const CK_ATTRIBUTE *attributes, uint32_t count,
                        toolkit::A_RSA_KEY **key_out);
// The octets of a secret key of any type.
CK_RV template_2_KeyItem(const CK_ATTRIBUTE *attributes, uint32_t count, toolkit::ITEM **item_out);

#endif
