// pkcs.cpp: the schema: X.501 names, X.509 certificates and revocation lists, PKCS#1, #5, #6, #7,
// #8, #9 and #10, and the library's own types. Each array is the body of the type below it; a
// component stands beside the member of the record that holds it, and compile time checks that the
// two agree.
#include <asn1/pkcs.h>

#include <iterator>

#include <qel/qelp.h>

namespace {

using namespace dencoder;
using enum Alphabet;

#define FIELD DENCODER_FIELD

// ---- Basic types --------------------------------------------------------------------------------

constexpr auto Boolean = boolean("BOOLEAN");
constexpr auto Integer = integer<int32_t>("INTEGER");
constexpr auto Unsigned = integer<uint32_t>("INTEGER");
constexpr auto OctetString = octet_string<QelOctetString>("OctetString");
constexpr auto BitString = bit_string<QelBitString>("BitString");
constexpr auto ObjectIdentifier = object_identifier<QelOid>("OBJECT IDENTIFIER");
constexpr auto Any = any<QelOctetString>("ANY");
constexpr auto UTCTime = utc_time<QelUTCTime>("UTCTime");
constexpr auto PT = character_string("PT", universal::printable_string, printable);
constexpr auto T61String = character_string("T61String", universal::t61_string, all);
constexpr auto IA5String = character_string("IA5String", universal::ia5_string, ascii);
constexpr auto EmailAddress = character_string("EmailAddress", universal::ia5_string, ascii);
constexpr auto PkcsData = octet_string<QelOctetString>("PkcsData");
constexpr auto PkcsDataFm = octet_string_in_file<QelOctetString>("PkcsDataFm");
constexpr auto AnyFm = any_in_file<QelOctetString>("ANY");
constexpr auto INT = integer<int32_t>("INT");

// ---- Names and attributes (X.501, X.520) --------------------------------------------------------

constexpr Component attribute_value_assertion_fields[] = {
    required("objid", ObjectIdentifier, FIELD(QelAva, type)),
    required("value", Any, FIELD(QelAva, value)),
};
constexpr auto AttributeValueAssertion =
    sequence<QelAva>("AttributeValueAssertion", attribute_value_assertion_fields);

constexpr Component relative_distinguished_name_fields[] = {
    required(nullptr, AttributeValueAssertion, FIELD(QelRdn, ava)),
};
constexpr auto RelativeDistinguishedName =
    set_of<QelRdn>("RelativeDistinguishedName", relative_distinguished_name_fields);

constexpr Component rdn_sequence_fields[] = {
    required(nullptr, RelativeDistinguishedName, FIELD(QelRdnSeq, rdn)),
};
constexpr auto RDNSequence = sequence_of<QelRdnSeq>("RDNSequence", rdn_sequence_fields);

constexpr Component name_fields[] = {
    required("distinguishedName", RDNSequence, FIELD(QelName, rdns)),
};
constexpr auto Name = choice<QelName>("Name", name_fields);

constexpr Component attribute_value_set_fields[] = {
    required(nullptr, Any, FIELD(QelAttrValue, value)),
};
constexpr auto AttributeValueSet =
    set_of<QelAttrValue>("AttributeValueSet", attribute_value_set_fields);

constexpr Component attribute_fields[] = {
    required("type", ObjectIdentifier, FIELD(QelAttribute, type)),
    required("values", AttributeValueSet, FIELD(QelAttribute, values)),
};
constexpr auto Attribute = sequence<QelAttribute>("Attribute", attribute_fields);

constexpr Component attributes_fields[] = {
    required(nullptr, Attribute, FIELD(QelAttributes, attribute)),
};
constexpr auto Attributes = set_of<QelAttributes>("Attributes", attributes_fields);

constexpr Component cig_fields[] = {
    required("t61String", T61String, FIELD(QelCaseIgnoreString, u.t61String)),
    required("printableString", PT, FIELD(QelCaseIgnoreString, u.printableString)),
};
constexpr auto CIG = choice<QelCaseIgnoreString>("CIG", cig_fields);

constexpr Component challenge_password_fields[] = {
    required("printableString", PT, FIELD(QelChallengePassword, u.printableString)),
    required("t61String", T61String, FIELD(QelChallengePassword, u.t61String)),
};
constexpr auto ChallengePassword =
    choice<QelChallengePassword>("ChallengePassword", challenge_password_fields);

// ---- Certificates (X.509) -----------------------------------------------------------------------

constexpr Component alg_id_fields[] = {
    required("algorithm", ObjectIdentifier, FIELD(QelAlgId, algorithm)),
    optional("parameters", Any, FIELD(QelAlgId, parameters)),
};
constexpr auto AlgID = sequence<QelAlgId>("AlgID", alg_id_fields);

constexpr Component subject_public_key_info_fields[] = {
    required("algorithm", AlgID, FIELD(QelKeyInfo, algorithm)),
    required("pubKey", BitString, FIELD(QelKeyInfo, pubKey)),
};
constexpr auto SubjectPublicKeyInfo =
    sequence<QelKeyInfo>("SubjectPublicKeyInfo", subject_public_key_info_fields);

constexpr Component validity_fields[] = {
    required("notBefore", UTCTime, FIELD(QelValidity, notBefore)),
    required("notAfter", UTCTime, FIELD(QelValidity, notAfter)),
};
constexpr auto Validity = sequence<QelValidity>("Validity", validity_fields);

constexpr Component certificate_extension_fields[] = {
    required("extend", ObjectIdentifier, FIELD(QelExtension, extnId)),
    defaulted("critical", Tag{}, Boolean, FIELD(QelExtension, critical), QEL_EXTENSION_CRITICAL, 0),
    required("extnValue", OctetString, FIELD(QelExtension, extnValue)),
};
constexpr auto CertificateExtension =
    sequence<QelExtension>("CertificateExtension", certificate_extension_fields);

constexpr Component certificate_extensions_fields[] = {
    required(nullptr, CertificateExtension, FIELD(QelExtensions, extension)),
};
constexpr auto CertificateExtensions =
    sequence_of<QelExtensions>("CertificateExtensions", certificate_extensions_fields);

constexpr auto CertificateVersion = integer<int32_t>("CertificateVersion");
constexpr auto CertificateSerialNumber = big_integer<QelSerial>("CertificateSerialNumber");

constexpr Component certificate_info_fields[] = {
    defaulted("version", explicit_tag(0), CertificateVersion, FIELD(QelCert, version),
              QEL_CERT_VERSION, 0),
    required("serial", CertificateSerialNumber, FIELD(QelCert, serial)),
    required("signature", AlgID, FIELD(QelCert, signature)),
    required("issuer", Name, FIELD(QelCert, issuer)),
    required("validity", Validity, FIELD(QelCert, validity)),
    required("subject", Name, FIELD(QelCert, subject)),
    required("pubKeyInfo", SubjectPublicKeyInfo, FIELD(QelCert, pubKeyInfo)),
    optional("issuerUID", implicit_tag(1), BitString, FIELD(QelCert, issuerUID)),
    optional("subjectUID", implicit_tag(2), BitString, FIELD(QelCert, subjectUID)),
    optional("extensions", explicit_tag(3), CertificateExtensions, FIELD(QelCert, extensions),
             QEL_CERT_EXTENSIONS),
};
constexpr auto CertificateInfo = sequence<QelCert>("CertificateInfo", certificate_info_fields);

constexpr Component certificate_fields[] = {
    required("info", CertificateInfo, same_record<QelCert>()),
    required("algorithm", AlgID, FIELD(QelCert, algorithm)),
    required("signature", BitString, FIELD(QelCert, sigBits)),
};
constexpr auto Certificate = sequence<QelCert>("Certificate", certificate_fields);

constexpr Component certificate_pair_fields[] = {
    optional("forward", explicit_tag(0), Certificate, FIELD(QelCertPair, forward)),
    optional("reverse", explicit_tag(1), Certificate, FIELD(QelCertPair, reverse)),
};
constexpr auto CertificatePair = sequence<QelCertPair>("CertificatePair", certificate_pair_fields);

// ---- Revocation lists: of X.509, and of PKCS#7, which has nextUpdate always ---------------------

constexpr Component crl_entry_fields[] = {
    required("userCertificate", CertificateSerialNumber, FIELD(QelCrlEntry, userCertificate)),
    required("revocationDate", UTCTime, FIELD(QelCrlEntry, revocationDate)),
};
constexpr auto CRLEntry = sequence<QelCrlEntry>("CRLEntry", crl_entry_fields);

constexpr Component crl_entries_fields[] = {
    required(nullptr, CRLEntry, FIELD(QelCrlEntries, entry)),
};
constexpr auto CRLEntries = sequence_of<QelCrlEntries>("SEQUENCE OF CRLEntry", crl_entries_fields);

constexpr Component cert_list_contents_fields[] = {
    required("signature", AlgID, FIELD(QelCrl, signature)),
    required("issuer", Name, FIELD(QelCrl, issuer)),
    required("thisUpdate", UTCTime, FIELD(QelCrl, thisUpdate)),
    optional("nextUpdate", UTCTime, FIELD(QelCrl, nextUpdate)),
    optional("revokedCertificates", CRLEntries, FIELD(QelCrl, revokedCertificates),
             QEL_CRL_ENTRIES),
};
constexpr auto CertListContents = sequence<QelCrl>("CertListContents", cert_list_contents_fields);

constexpr Component certificate_list_fields[] = {
    required("certListContents", CertListContents, same_record<QelCrl>()),
    required("algId", AlgID, FIELD(QelCrl, algorithm)),
    required("signature", BitString, FIELD(QelCrl, sigBits)),
};
constexpr auto CertificateList = sequence<QelCrl>("CertificateList", certificate_list_fields);

constexpr Component certificate_revocation_list_info_fields[] = {
    required("signature", AlgID, FIELD(QelCrl, signature)),
    required("issuer", Name, FIELD(QelCrl, issuer)),
    required("lastUpdate", UTCTime, FIELD(QelCrl, thisUpdate)),
    required("nextUpdate", UTCTime, FIELD(QelCrl, nextUpdate)),
    optional("revokedCertificates", CRLEntries, FIELD(QelCrl, revokedCertificates),
             QEL_CRL_ENTRIES),
};
constexpr auto CertificateRevocationListInfo =
    sequence<QelCrl>("CertificateRevocationListInfo", certificate_revocation_list_info_fields);

constexpr Component certificate_revocation_list_fields[] = {
    required("info", CertificateRevocationListInfo, same_record<QelCrl>()),
    required("algorithm", AlgID, FIELD(QelCrl, algorithm)),
    required("signature", BitString, FIELD(QelCrl, sigBits)),
};
constexpr auto CertificateRevocationList =
    sequence<QelCrl>("CertificateRevocationList", certificate_revocation_list_fields);

// ---- Private keys (PKCS#8) and algorithm parameters (PKCS#1, PKCS#5, RFC 2268) ------------------

constexpr Component private_key_info_fields[] = {
    required("version", Integer, FIELD(QelPrivateKeyInfo, version)),
    required("privateKeyAlgorithm", AlgID, FIELD(QelPrivateKeyInfo, privateKeyAlgorithm)),
    required("privateKey", OctetString, FIELD(QelPrivateKeyInfo, privateKey)),
    optional("attributes", implicit_tag(0), Attributes, FIELD(QelPrivateKeyInfo, attributes),
             QEL_PRIVKEY_ATTRIBUTES),
};
constexpr auto PrivateKeyInfo =
    sequence<QelPrivateKeyInfo>("PrivateKeyInfo", private_key_info_fields);

constexpr Component encrypted_private_key_info_fields[] = {
    required("encryptionAlgorithm", AlgID, FIELD(QelEncryptedPrivateKeyInfo, encryptionAlgorithm)),
    required("encryptedData", OctetString, FIELD(QelEncryptedPrivateKeyInfo, encryptedData)),
};
constexpr auto EncryptedPrivateKeyInfo = sequence<QelEncryptedPrivateKeyInfo>(
    "EncryptedPrivateKeyInfo", encrypted_private_key_info_fields);

constexpr Component digest_info_fields[] = {
    required("digestAlgorithm", AlgID, FIELD(QelDigestInfo, digestAlgorithm)),
    required("digest", OctetString, FIELD(QelDigestInfo, digest)),
};
constexpr auto DigestInfo = sequence<QelDigestInfo>("DigestInfo", digest_info_fields);

constexpr Component pbe_parameter_fields[] = {
    required("salt", OctetString, FIELD(QelPBEParameter, salt)),
    required("iterationCount", Unsigned, FIELD(QelPBEParameter, iterationCount)),
};
constexpr auto PBEParameter = sequence<QelPBEParameter>("PBEParameter", pbe_parameter_fields);

constexpr Component rc2_sequence_fields[] = {
    required("version", Integer, FIELD(QelRC2CBCParameter, u.sequence.version)),
    required("iv", OctetString, FIELD(QelRC2CBCParameter, u.sequence.iv)),
};
constexpr auto RC2Sequence = sequence<QelRC2CBCParameter>("SEQUENCE", rc2_sequence_fields);

constexpr Component rc2_cbc_parameter_fields[] = {
    required("iv", OctetString, FIELD(QelRC2CBCParameter, u.iv)),
    required("sequence", RC2Sequence, same_record<QelRC2CBCParameter>()),
};
constexpr auto RC2CBCParameter =
    choice<QelRC2CBCParameter>("RC2-CBCParameter", rc2_cbc_parameter_fields);

// ---- Key packages -------------------------------------------------------------------------------

constexpr auto TrustedKeySerial = big_integer<QelOctetString>("CertificateSerialNumber");

constexpr Component trusted_key_fields[] = {
    required("owner", Name, FIELD(QelTrustedKey, owner)),
    required("pubKeyInfo", SubjectPublicKeyInfo, FIELD(QelTrustedKey, pubKeyInfo)),
    optional("issuer", explicit_tag(0), Name, FIELD(QelTrustedKey, issuer)),
    optional("validity", Validity, FIELD(QelTrustedKey, validity)),
    optional("serial", TrustedKeySerial, FIELD(QelTrustedKey, serial)),
    optional("extensions", explicit_tag(1), CertificateExtensions, FIELD(QelTrustedKey, extensions),
             QEL_TKEY_EXTENSIONS),
};
constexpr auto TrustedKey = sequence<QelTrustedKey>("TrustedKey", trusted_key_fields);

constexpr Component trusted_key_list_fields[] = {
    required(nullptr, TrustedKey, FIELD(QelTrustedKeys, key)),
};
constexpr auto TrustedKeyList = set_of<QelTrustedKeys>("TrustedKeyList", trusted_key_list_fields);

constexpr Component key_pkg_info_fields[] = {
    required("version", PT, FIELD(QelKeyPkg, version)),
    required("keypkgId", IA5String, FIELD(QelKeyPkg, keypkgId)),
    required("owner", Name, FIELD(QelKeyPkg, owner)),
    required("pubKeyInfo", SubjectPublicKeyInfo, FIELD(QelKeyPkg, pubKeyInfo)),
    required("encrPrivKeyInfo", EncryptedPrivateKeyInfo, FIELD(QelKeyPkg, encrPrivKeyInfo)),
    optional("keypkgAttrs", Attributes, FIELD(QelKeyPkg, keypkgAttrs), QEL_KEYPKG_ATTRS),
    required("usage", Unsigned, FIELD(QelKeyPkg, usage)),
    optional("tKeys", TrustedKeyList, FIELD(QelKeyPkg, tKeys), QEL_KEYPKG_TKEYS),
};
constexpr auto KeyPkgInfo = sequence<QelKeyPkg>("KeyPkgInfo", key_pkg_info_fields);

constexpr Component key_pkg_fields[] = {
    required("info", KeyPkgInfo, same_record<QelKeyPkg>()),
    required("algorithm", AlgID, FIELD(QelKeyPkg, algorithm)),
    required("signature", BitString, FIELD(QelKeyPkg, signature)),
};
constexpr auto KeyPkg = sequence<QelKeyPkg>("KeyPkg", key_pkg_fields);

constexpr Component serv_key_info_fields[] = {
    required("keyAlgId", AlgID, FIELD(QelServKeyInfo, keyAlgId)),
    required("uid", Unsigned, FIELD(QelServKeyInfo, uid)),
    required("flags", Unsigned, FIELD(QelServKeyInfo, flags)),
    required("privKey", OctetString, FIELD(QelServKeyInfo, privKey)),
    required("keypkgId", IA5String, FIELD(QelServKeyInfo, keypkgId)),
    required("hostIP", IA5String, FIELD(QelServKeyInfo, hostIP)),
    required("keypkg", OctetString, FIELD(QelServKeyInfo, keypkg)),
};
constexpr auto ServKeyInfo = sequence<QelServKeyInfo>("QelServKeyInfo", serv_key_info_fields);

// ---- Requests (PKCS#10, and a browser's) --------------------------------------------------------

constexpr Component certification_request_info_fields[] = {
    required("version", Integer, FIELD(QelCertReq, version)),
    required("subject", Name, FIELD(QelCertReq, subject)),
    required("pubKeyInfo", SubjectPublicKeyInfo, FIELD(QelCertReq, pubKeyInfo)),
    required("attributes", implicit_tag(0), Attributes, FIELD(QelCertReq, attributes)),
};
constexpr auto CertificationRequestInfo =
    sequence<QelCertReq>("CertificationRequestInfo", certification_request_info_fields);

constexpr Component certification_request_fields[] = {
    required("info", CertificationRequestInfo, same_record<QelCertReq>()),
    required("algorithm", AlgID, FIELD(QelCertReq, algorithm)),
    required("signature", BitString, FIELD(QelCertReq, signature)),
};
constexpr auto CertificationRequest =
    sequence<QelCertReq>("CertificationRequest", certification_request_fields);

constexpr Component public_key_and_challenge_fields[] = {
    required("spki", SubjectPublicKeyInfo, FIELD(QelNetscapeCertReq, spki)),
    required("challenge", IA5String, FIELD(QelNetscapeCertReq, challenge)),
};
constexpr auto PublicKeyAndChallenge =
    sequence<QelNetscapeCertReq>("PublicKeyAndChallenge", public_key_and_challenge_fields);

constexpr Component signed_public_key_and_challenge_fields[] = {
    required("pubKeyAndChallenge", PublicKeyAndChallenge, same_record<QelNetscapeCertReq>()),
    required("sigAlg", AlgID, FIELD(QelNetscapeCertReq, algorithm)),
    required("signature", BitString, FIELD(QelNetscapeCertReq, signature)),
};
constexpr auto SignedPublicKeyAndChallenge = sequence<QelNetscapeCertReq>(
    "SignedPublicKeyAndChallenge", signed_public_key_and_challenge_fields);

// ---- PKCS#6 and PKCS#7 --------------------------------------------------------------------------

constexpr Component content_info_fields[] = {
    required("contentType", ObjectIdentifier, FIELD(QelContentInfo, contentType)),
    optional("content", explicit_tag(0), Any, FIELD(QelContentInfo, content)),
};
constexpr auto ContentInfo = sequence<QelContentInfo>("ContentInfo", content_info_fields);

constexpr Component content_info_fm_fields[] = {
    required("contentType", ObjectIdentifier, FIELD(QelContentInfo, contentType)),
    optional("content", explicit_tag(0), AnyFm, FIELD(QelContentInfo, content)),
};
constexpr auto ContentInfoFm = sequence<QelContentInfo>("ContentInfoFm", content_info_fm_fields);

constexpr Component issuer_and_serial_number_fields[] = {
    required("issuer", Name, FIELD(QelIssuerAndSerial, issuer)),
    required("serial", CertificateSerialNumber, FIELD(QelIssuerAndSerial, serial)),
};
constexpr auto IssuerAndSerialNumber =
    sequence<QelIssuerAndSerial>("IssuerAndSerialNumber", issuer_and_serial_number_fields);

constexpr Component extended_certificate_info_fields[] = {
    required("version", Integer, FIELD(QelExtendedCert, version)),
    required("certificate", Certificate, FIELD(QelExtendedCert, certificate)),
    required("attributes", Attributes, FIELD(QelExtendedCert, attributes)),
};
constexpr auto ExtendedCertificateInfo =
    sequence<QelExtendedCert>("ExtendedCertificateInfo", extended_certificate_info_fields);

constexpr Component extended_certificate_fields[] = {
    required("extendedCertificateInfo", ExtendedCertificateInfo, same_record<QelExtendedCert>()),
    required("signatureAlgorithm", AlgID, FIELD(QelExtendedCert, signatureAlgorithm)),
    required("signature", BitString, FIELD(QelExtendedCert, signature)),
};
constexpr auto ExtendedCertificate =
    sequence<QelExtendedCert>("ExtendedCertificate", extended_certificate_fields);

constexpr Component extended_certificate_or_certificate_fields[] = {
    required("cert", Certificate, FIELD(QelCertChoice, u.cert)),
    required("extendedCert", implicit_tag(0), ExtendedCertificate,
             FIELD(QelCertChoice, u.extendedCert)),
};
constexpr auto ExtendedCertificateOrCertificate = choice<QelCertChoice>(
    "ExtendedCertificateOrCertificate", extended_certificate_or_certificate_fields);

constexpr Component extended_certificates_and_certificates_fields[] = {
    required(nullptr, ExtendedCertificateOrCertificate, FIELD(QelCertChoices, cert)),
};
constexpr auto ExtendedCertificatesAndCertificates = set_of<QelCertChoices>(
    "ExtendedCertificatesAndCertificates", extended_certificates_and_certificates_fields);

constexpr Component certificate_revocation_lists_fields[] = {
    required(nullptr, CertificateRevocationList, FIELD(QelCrls, crl)),
};
constexpr auto CertificateRevocationLists =
    set_of<QelCrls>("CertificateRevocationLists", certificate_revocation_lists_fields);

constexpr Component digest_algorithms_fields[] = {
    required(nullptr, AlgID, FIELD(QelAlgIds, algid)),
};
constexpr auto DigestAlgorithms = set_of<QelAlgIds>("SET OF AlgID", digest_algorithms_fields);

constexpr Component signer_info_fields[] = {
    required("version", Integer, FIELD(QelSignerInfo, version)),
    required("issuerAndSerialNumber", IssuerAndSerialNumber,
             FIELD(QelSignerInfo, issuerAndSerialNumber)),
    required("digestAlgorithm", AlgID, FIELD(QelSignerInfo, digestAlgorithm)),
    optional("authenticatedAttributes", implicit_tag(0), Attributes,
             FIELD(QelSignerInfo, authenticatedAttributes), QEL_SIGNER_AUTH_ATTRS),
    required("digestEncryptionAlgorithm", AlgID, FIELD(QelSignerInfo, digestEncryptionAlgorithm)),
    required("encryptedDigest", OctetString, FIELD(QelSignerInfo, encryptedDigest)),
    optional("unauthenticatedAttributes", implicit_tag(1), Attributes,
             FIELD(QelSignerInfo, unauthenticatedAttributes), QEL_SIGNER_UNAUTH_ATTRS),
};
constexpr auto SignerInfo = sequence<QelSignerInfo>("SignerInfo", signer_info_fields);

constexpr Component signer_infos_fields[] = {
    required(nullptr, SignerInfo, FIELD(QelSignerInfos, signer)),
};
constexpr auto SignerInfos = set_of<QelSignerInfos>("SET OF SignerInfo", signer_infos_fields);

constexpr Component signed_data_fields[] = {
    required("version", Integer, FIELD(QelSignedData, version)),
    required("digestAlgorithms", DigestAlgorithms, FIELD(QelSignedData, digestAlgorithms)),
    required("contentInfo", ContentInfo, FIELD(QelSignedData, contentInfo)),
    optional("certs", implicit_tag(0), ExtendedCertificatesAndCertificates,
             FIELD(QelSignedData, certs), QEL_SIGNED_CERTS),
    optional("crls", implicit_tag(1), CertificateRevocationLists, FIELD(QelSignedData, crls),
             QEL_SIGNED_CRLS),
    required("signerInfos", SignerInfos, FIELD(QelSignedData, signerInfos)),
};
constexpr auto SignedData = sequence<QelSignedData>("SignedData", signed_data_fields);

constexpr Component signed_data_fm_fields[] = {
    signed_data_fields[0],
    signed_data_fields[1],
    required("contentInfo", ContentInfoFm, FIELD(QelSignedData, contentInfo)),
    signed_data_fields[3],
    signed_data_fields[4],
    signed_data_fields[5],
};
constexpr auto SignedDataFm = sequence<QelSignedData>("SignedDataFm", signed_data_fm_fields);

constexpr Component recipient_info_fields[] = {
    required("version", Integer, FIELD(QelRcptInfo, version)),
    required("issuerAndSerialNumber", IssuerAndSerialNumber,
             FIELD(QelRcptInfo, issuerAndSerialNumber)),
    required("keyEncryptionAlgorithm", AlgID, FIELD(QelRcptInfo, keyEncryptionAlgorithm)),
    required("encryptedKey", OctetString, FIELD(QelRcptInfo, encryptedKey)),
};
constexpr auto RecipientInfo = sequence<QelRcptInfo>("RecipientInfo", recipient_info_fields);

constexpr Component recipient_infos_fields[] = {
    required(nullptr, RecipientInfo, FIELD(QelRcptInfos, recipient)),
};
constexpr auto RecipientInfos =
    set_of<QelRcptInfos>("SET OF RecipientInfo", recipient_infos_fields);

constexpr Component encrypted_content_info_fields[] = {
    required("contentType", ObjectIdentifier, FIELD(QelEncryptedContentInfo, contentType)),
    required("contentEncryptionAlgorithm", AlgID,
             FIELD(QelEncryptedContentInfo, contentEncryptionAlgorithm)),
    optional("encryptedContent", implicit_tag(0), OctetString,
             FIELD(QelEncryptedContentInfo, encryptedContent)),
};
constexpr auto EncryptedContentInfo =
    sequence<QelEncryptedContentInfo>("EncryptedContentInfo", encrypted_content_info_fields);

constexpr Component enveloped_data_fields[] = {
    required("version", Integer, FIELD(QelEnvelopedData, version)),
    required("recipientInfos", RecipientInfos, FIELD(QelEnvelopedData, recipientInfos)),
    required("encryptedContentInfo", EncryptedContentInfo,
             FIELD(QelEnvelopedData, encryptedContentInfo)),
};
constexpr auto EnvelopedData = sequence<QelEnvelopedData>("EnvelopedData", enveloped_data_fields);

constexpr Component encrypted_data_fields[] = {
    required("version", Integer, FIELD(QelEncryptedData, version)),
    required("encryptedContentInfo", EncryptedContentInfo,
             FIELD(QelEncryptedData, encryptedContentInfo)),
};
constexpr auto EncryptedData = sequence<QelEncryptedData>("EncryptedData", encrypted_data_fields);

// ---- PDUs, by number ----------------------------------------------------------------------------

constexpr const Type *pdus[] = {
    &Name,                          // 1
    &CIG,                           // 2
    &PT,                            // 3
    &CertificatePair,               // 4
    &CertificateInfo,               // 5
    &Certificate,                   // 6
    &OctetString,                   // 7
    &BitString,                     // 8
    &CertificateVersion,            // 9
    &SubjectPublicKeyInfo,          // 10
    &AlgID,                         // 11
    &CertificateList,               // 12
    &RC2CBCParameter,               // 13
    &INT,                           // 14
    &KeyPkgInfo,                    // 15
    &KeyPkg,                        // 16
    &ServKeyInfo,                   // 17
    &DigestInfo,                    // 18
    &CertificateRevocationListInfo, // 19
    &PBEParameter,                  // 20
    &ContentInfo,                   // 21
    &ContentInfoFm,                 // 22
    &EnvelopedData,                 // 23
    &EncryptedData,                 // 24
    &SignedData,                    // 25
    &SignedDataFm,                  // 26
    &PkcsData,                      // 27
    &PkcsDataFm,                    // 28
    &PrivateKeyInfo,                // 29
    &EncryptedPrivateKeyInfo,       // 30
    &CertificationRequestInfo,      // 31
    &CertificationRequest,          // 32
    &ChallengePassword,             // 33
    &EmailAddress,                  // 34
    &PublicKeyAndChallenge,         // 35
    &SignedPublicKeyAndChallenge,   // 36
};
static_assert(std::size(pdus) == QEL_PDU_SignedPublicKeyAndChallenge);
static_assert(pdus[QEL_PDU_Name - 1] == &Name && pdus[QEL_PDU_Certificate - 1] == &Certificate &&
              pdus[QEL_PDU_DigestInfo - 1] == &DigestInfo &&
              pdus[QEL_PDU_PrivateKeyInfo - 1] == &PrivateKeyInfo);

// The alternatives and presence bits that programs see.
static_assert(QEL_NAME_RDN_SEQUENCE == 1 && QEL_RC2_IV == 1 && QEL_RC2_SEQUENCE == 2);
static_assert(QEL_CIG_T61 == 1 && QEL_CIG_PRINTABLE == 2);
static_assert(QEL_CHALLENGE_PRINTABLE == 1 && QEL_CHALLENGE_T61 == 2);
static_assert(QEL_CERT_PLAIN == 1 && QEL_CERT_EXTENDED == 2);

} // namespace

constinit const ControlTable pkcs = {"pkcs", _ossinit_pkcs, pdus};

void _ossinit_pkcs(OssEnvironment *environment) {
    ossLinkBer(environment);
    ossLinkDer(environment);
    ossLinkConstraint(environment);
}
