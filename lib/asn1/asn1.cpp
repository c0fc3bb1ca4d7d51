// asn1.cpp: the ASN.1 environment of a context, and encoding and decoding by PDU number.
#include <asn1/pkcs.h>
#include <lib/context.h>
#include <lib/memory.h>

#include <qel/qelp.h>

namespace {

OssEnvironment *environment_of(const QelContext *context) {
    return context != nullptr ? static_cast<OssEnvironment *>(context->asn1) : nullptr;
}

// What signatures and digests are computed over must look alike everywhere.
bool is_always_der(int pdu) {
    switch (pdu) {
    case QEL_PDU_Name:
    case QEL_PDU_CertificateInfo:
    case QEL_PDU_Certificate:
    case QEL_PDU_KeyPkgInfo:
    case QEL_PDU_DigestInfo:
    case QEL_PDU_CertificationRequestInfo:
        return true;
    default:
        return false;
    }
}

// A record whose bits are right is not written to: it may be shared, or constant.
void mark(uint8_t &mask, uint8_t bit, const void *list) {
    if (list != nullptr && (mask & bit) == 0)
        mask |= bit;
}

void mark_signed_data(QelSignedData &data) {
    mark(data.mask, QEL_SIGNED_CERTS, data.certs);
    mark(data.mask, QEL_SIGNED_CRLS, data.crls);
    for (QelSignerInfos *node = data.signerInfos; node != nullptr; node = node->next) {
        QelSignerInfo *signer = node->signer;
        if (signer == nullptr)
            continue;
        mark(signer->mask, QEL_SIGNER_AUTH_ATTRS, signer->authenticatedAttributes);
        mark(signer->mask, QEL_SIGNER_UNAUTH_ATTRS, signer->unauthenticatedAttributes);
    }
}

// Sets the presence bits of lists that are there. The bits stay set, because the free functions go
// by them too.
void mark_present(void *value, int pdu) {
    switch (pdu) {
    case QEL_PDU_CertificateInfo:
    case QEL_PDU_Certificate: {
        QelCert &certificate = *static_cast<QelCert *>(value);
        mark(certificate.mask, QEL_CERT_EXTENSIONS, certificate.extensions);
        break;
    }
    case QEL_PDU_KeyPkgInfo:
    case QEL_PDU_KeyPkg: {
        QelKeyPkg &package = *static_cast<QelKeyPkg *>(value);
        mark(package.mask, QEL_KEYPKG_ATTRS, package.keypkgAttrs);
        mark(package.mask, QEL_KEYPKG_TKEYS, package.tKeys);
        break;
    }
    case QEL_PDU_SignedData:
    case QEL_PDU_SignedDataFm:
        mark_signed_data(*static_cast<QelSignedData *>(value));
        break;
    default:
        break;
    }
}

void free_pdu(QelContext *context, int pdu, void *value) {
    OssEnvironment *environment = environment_of(context);
    if (environment != nullptr && value != nullptr)
        ossFreePDU(environment, pdu, value);
}

} // namespace

// ---- Environment --------------------------------------------------------------------------------

QelStatus __qel_init_asn1(QelContext *context) {
    if (context == nullptr)
        return QEL_ERR_BAD_PARAM;
    qel::Owned<void> block(std::calloc(1, OSS_ENVIRONMENT_SIZE));
    if (!block)
        return QEL_ERR_NO_MEMORY;
    if (ossinit(static_cast<OssEnvironment *>(block.get()), &pkcs) != OSS_DONE)
        return QEL_ERR_ASN1_INIT;
    __qel_end_asn1(context);
    context->asn1 = block.release();
    return QEL_OK;
}

QelStatus __qel_end_asn1(QelContext *context) {
    if (OssEnvironment *environment = environment_of(context)) {
        ossterm(environment);
        std::free(environment);
        context->asn1 = nullptr;
    }
    return QEL_OK;
}

QelStatus __qel_set_encoding_flags_indefinite(QelContext *context) {
    OssEnvironment *environment = environment_of(context);
    if (environment == nullptr)
        return QEL_ERR_BAD_PARAM;
    ossSetEncodingFlags(environment, OSS_INDEFINITE);
    return QEL_OK;
}

QelStatus __qel_set_decoding_flags_debugpdu(QelContext *context) {
    OssEnvironment *environment = environment_of(context);
    if (environment == nullptr)
        return QEL_ERR_BAD_PARAM;
    ossSetDecodingFlags(environment, OSS_TRACE);
    return QEL_OK;
}

// ---- Encoding and decoding ----------------------------------------------------------------------

QelStatus __qel_asn1_encode(QelContext *context, const void *value, int pdu, uint8_t **buffer,
                            uint32_t *length) {
    OssEnvironment *environment = environment_of(context);
    if (environment == nullptr || value == nullptr || buffer == nullptr || length == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (*buffer == nullptr && *length != 0)
        return QEL_ERR_BAD_PARAM;
    const OssRules rules = ossGetEncodingRules(environment);
    if (is_always_der(pdu))
        ossSetEncodingRules(environment, OSS_DER);
    mark_present(const_cast<void *>(value), pdu);
    OssBuf output = {*length, *buffer};
    const OssStatus status = ossEncode(environment, pdu, value, &output);
    ossSetEncodingRules(environment, rules);
    if (status != OSS_DONE)
        return QEL_ERR_ASN1_ENCODE;
    *buffer = output.value;
    *length = output.length;
    return QEL_OK;
}

QelStatus __qel_asn1_decode(QelContext *context, const uint8_t *data, uint32_t length, int pdu,
                            void **value_out) {
    if (value_out != nullptr)
        *value_out = nullptr;
    OssEnvironment *environment = environment_of(context);
    if (environment == nullptr || data == nullptr || value_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    const OssBuf input = {length, const_cast<uint8_t *>(data)};
    return ossDecode(environment, &pdu, &input, value_out) == OSS_DONE ? QEL_OK
                                                                       : QEL_ERR_ASN1_DECODE;
}

// ---- Marked files -------------------------------------------------------------------------------

QelStatus __qel_mark_oss_file(QelContext *context, const char *file_name, void **marked_out) {
    constexpr int file = 1;
    OssEnvironment *environment = environment_of(context);
    if (environment == nullptr || file_name == nullptr || marked_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *marked_out = ossMarkObj(environment, file, file_name);
    return *marked_out != nullptr ? QEL_OK : QEL_ERR_NO_MEMORY;
}

QelStatus __qel_unmark_oss_file(QelContext *context, void *marked, void **result_out) {
    OssEnvironment *environment = environment_of(context);
    if (environment == nullptr || marked == nullptr || result_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *result_out = ossUnmarkObj(environment, marked);
    return QEL_OK;
}

// ---- Any PDU ------------------------------------------------------------------------------------

const char *__qel_asn1_pdu_name(int pdu) {
    return pdu >= 1 && static_cast<std::size_t>(pdu) <= pkcs.pdus.size() ? pkcs.pdus[pdu - 1]->name
                                                                         : nullptr;
}

QelStatus __qel_asn1_print(QelContext *context, FILE *stream, const void *value, int pdu) {
    OssEnvironment *environment = environment_of(context);
    if (environment == nullptr || stream == nullptr || value == nullptr ||
        __qel_asn1_pdu_name(pdu) == nullptr)
        return QEL_ERR_BAD_PARAM;
    ossSetPrintStream(environment, stream);
    const OssStatus status = ossPrintPDU(environment, pdu, value);
    ossSetPrintStream(environment, nullptr);
    return status == OSS_DONE ? QEL_OK : QEL_ERR_OUTPUT;
}

void __qel_asn1_free(QelContext *context, void *value, int pdu) {
    free_pdu(context, pdu, value);
}

// ---- One function per PDU -----------------------------------------------------------------------

void __qel_free_keyinfo_pdu(QelContext *context, QelKeyInfo *value) {
    free_pdu(context, QEL_PDU_SubjectPublicKeyInfo, value);
}

void __qel_free_rc2_cbc_params_pdu(QelContext *context, QelRC2CBCParameter *value) {
    free_pdu(context, QEL_PDU_RC2_CBCParameter, value);
}

void __qel_free_pbe_paramater_pdu(QelContext *context, QelPBEParameter *value) {
    free_pdu(context, QEL_PDU_PBEParameter, value);
}

void __qel_free_content_info_fm_pdu(QelContext *context, QelContentInfo *value) {
    free_pdu(context, QEL_PDU_ContentInfoFm, value);
}

void __qel_free_envdata_pdu(QelContext *context, QelEnvelopedData *value) {
    free_pdu(context, QEL_PDU_EnvelopedData, value);
}

void __qel_free_encrdata_pdu(QelContext *context, QelEncryptedData *value) {
    free_pdu(context, QEL_PDU_EncryptedData, value);
}

void __qel_free_sigdata_fm_pdu(QelContext *context, QelSignedData *value) {
    free_pdu(context, QEL_PDU_SignedDataFm, value);
}

void __qel_free_pkcsdata_pdu(QelContext *context, QelOctetString *value) {
    free_pdu(context, QEL_PDU_PkcsData, value);
}

void __qel_free_pkcsdata_fm_pdu(QelContext *context, QelOctetString *value) {
    free_pdu(context, QEL_PDU_PkcsDataFm, value);
}

void __qel_free_private_key_info_pdu(QelContext *context, QelPrivateKeyInfo *value) {
    free_pdu(context, QEL_PDU_PrivateKeyInfo, value);
}

void __qel_free_netscape_certreq(QelContext *context, QelNetscapeCertReq *value) {
    free_pdu(context, QEL_PDU_SignedPublicKeyAndChallenge, value);
}
