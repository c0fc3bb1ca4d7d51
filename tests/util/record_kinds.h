// record_kinds.h: the copy and free functions of each kind of record, for tests of all of them.
#ifndef TESTS_UTIL_RECORD_KINDS_H
#define TESTS_UTIL_RECORD_KINDS_H

#include "support/records.h"

#include <cstring>

template <class T> struct Kind {
    const char *name;
    T *(*make)();
    void (*free)(T **);
    void (*free2)(T *);
    QelStatus (*copy)(T **, const T *) = nullptr;
    QelStatus (*copy2)(T *, const T *) = nullptr; // null: there is no such form
};

inline void free_time(QelUTCTime **record) {
    std::free(*record);
    *record = nullptr;
}

// Calls back with each kind that can be copied.
template <class Visit> void each_copied_kind(const Visit &visit) {
    using namespace records;
    visit(Kind<QelOctetString>{"ostr", full_ostr, __qel_free_ostr, __qel_free2_ostr,
                               __qel_copy_ostr, __qel_copy2_ostr});
    visit(Kind<QelBitString>{"bstr", full_bstr, __qel_free_bstr, __qel_free2_bstr, __qel_copy_bstr,
                             __qel_copy2_bstr});
    visit(Kind<QelUid>{"uid", full_bstr, __qel_free_uid, __qel_free2_uid, __qel_copy_uid,
                       __qel_copy2_uid});
    visit(Kind<QelOid>{"oid", full_oid, __qel_free_oid, __qel_free2_oid, __qel_copy_oid,
                       __qel_copy2_oid});
    visit(Kind<QelSerial>{"serial", full_serial, __qel_free_serial, __qel_free2_serial,
                          __qel_copy_serial, __qel_copy2_serial});
    visit(Kind<QelUTCTime>{"UTCTime", full_time, free_time, nullptr, __qel_copy_UTCTime,
                           __qel_copy2_UTCTime});
    visit(Kind<QelValidity>{"validity", full_validity, __qel_free_validity, __qel_free2_validity,
                            __qel_copy_validity, __qel_copy2_validity});
    visit(Kind<QelAlgId>{"algid", full_algid, __qel_free_algid, __qel_free2_algid, __qel_copy_algid,
                         __qel_copy2_algid});
    visit(Kind<QelKeyInfo>{"keyinfo", full_keyinfo, __qel_free_keyinfo, __qel_free2_keyinfo,
                           __qel_copy_keyinfo, __qel_copy2_keyinfo});
    visit(Kind<QelAva>{"ava", full_ava, __qel_free_ava, __qel_free2_ava, __qel_copy_ava});
    visit(Kind<QelRdn>{"rdn", full_rdn, __qel_free_rdn, __qel_free2_rdn, __qel_copy_rdn});
    visit(
        Kind<QelName>{"dn", full_name, qel_free_dn, __qel_free2_dn, __qel_copy_dn, __qel_copy2_dn});
    visit(Kind<QelExtension>{"v3_extension", full_extension, __qel_free_v3_extension,
                             __qel_free2_v3_extension, __qel_copy_v3_cert_extension,
                             __qel_copy2_v3_extension});
    visit(Kind<QelExtensions>{"v3_cert_extensions", full_extensions, __qel_free_v3_cert_extensions,
                              __qel_free2_v3_cert_extensions, __qel_copy_v3_cert_extensions});
    visit(Kind<QelCert>{"cert", full_cert, qel_free_cert, __qel_free2_cert, __qel_copy_cert,
                        __qel_copy2_cert});
    visit(Kind<QelTrustedKey>{"trusted_key", full_trusted_key, __qel_free_trusted_key,
                              __qel_free2_trusted_key, __qel_copy_tkey, __qel_copy2_trusted_key});
    visit(Kind<QelEncryptedPrivateKeyInfo>{
        "encrypted_private_key_info", full_encrypted_private_key_info,
        __qel_free_encrypted_private_key_info, __qel_free2_encrypted_private_key_info,
        __qel_copy_encrypted_private_key_info, __qel_copy2_encrypted_private_key_info});
}

// Calls back with each of these, and with each kind that can only be released.
template <class Visit> void each_kind(const Visit &visit) {
    using namespace records;
    each_copied_kind(visit);
    visit(Kind<QelRdnSeq>{"rdn_seq", full_rdn_seq, __qel_free_rdn_seq, __qel_free2_rdn_seq});
    visit(Kind<QelAttribute>{"attribute", full_attribute, __qel_free_attribute,
                             __qel_free2_attribute});
    visit(Kind<QelAttrValue>{"attr_value", full_attr_value, __qel_free_attr_value,
                             __qel_free2_attr_value});
    visit(Kind<QelCertPair>{"cert_pair", full_cert_pair, __qel_free_cert_pair,
                            __qel_free2_cert_pair});
    visit(Kind<QelCertReq>{"certreq", full_certreq, __qel_free_certreq, __qel_free2_certreq});
    visit(Kind<QelKeyPkg>{"keypkg", full_keypkg, qel_free_keypkg, __qel_free2_keypkg});
    visit(Kind<QelDigestInfo>{"digest_info", full_digest_info, __qel_free_digest_info,
                              __qel_free2_digest_info});
    visit(Kind<QelContentInfo>{"pkcs_content_info", full_content_info, __qel_free_pkcs_content_info,
                               __qel_free2_pkcs_content_info});
    visit(Kind<QelIssuerAndSerial>{"issuer_and_serial", full_issuer_and_serial,
                                   __qel_free_issuer_and_serial, __qel_free2_issuer_and_serial});
    visit(Kind<QelRcptInfo>{"rcpt_info", full_rcpt_info, __qel_free_rcpt_info,
                            __qel_free2_rcpt_info});
    visit(Kind<QelRcptInfos>{"rcpt_infos", full_rcpt_infos, __qel_free_rcpt_infos,
                             __qel_free2_rcpt_infos});
    visit(Kind<QelItemList>{"item_list", full_item_list, __qel_free_item_list,
                            __qel_free2_item_list});
}

template <class T> bool is_clear(const T &record) {
    const T clear = {};
    return std::memcmp(&record, &clear, sizeof record) == 0;
}

#endif
