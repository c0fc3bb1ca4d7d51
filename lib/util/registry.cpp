#include <qel/qelp.h>

#include <cstring>

#include <asn1/object_ids.h>

namespace record = qel::record;

namespace {

constexpr uint32_t cipher = QEL_ALG_CIPHER, pubkey = QEL_ALG_PUBKEY, digest = QEL_ALG_DIGEST,
                   signature = QEL_ALG_SIGNATURE;
constexpr uint32_t keysize = QEL_PARM_KEYSIZE, iv = QEL_PARM_IV, null = QEL_PARM_NULL,
                   rc2 = QEL_PARM_RC2;

// The first row with a given identifier wins, so the order of rows decides what shared values mean.
// clang-format off
constexpr QelAlgListEntry qelAlgList[] = {
    {&record::QEL_RSA_OID,                   "rsa (512)",            pubkey,    keysize, 512},
    {&record::QEL_RSA_ENCR_OID,              "rsaEncryption (512)",  pubkey,    null,    512},
    {&record::QEL_MD2WithRsa_OID,            "md2WithRSA",           signature, null,    0},
    {&record::QEL_MD5WithRsa_OID,            "md5WithRSA",           signature, null,    0},
    {&record::QEL_MD2WithRSAEncryption_OID,  "md2WithRSAEncryption", signature, null,    0},
    {&record::QEL_MD5WithRSAEncryption_OID,  "md5WithRSAEncryption", signature, null,    0},
    {&record::QEL_DES_CBC_OID,               "des_exp",              cipher,    iv,      40},
    {&record::QEL_RC2_CBC_EXP_OID,           "rc2_exp",              cipher,    rc2,     40},
    {&record::QEL_RC4_EXP_OID,               "rc4_exp",              cipher,    null,    40},
    {&record::QEL_MD2_OID,                   "md2",                  digest,    null,    0},
    {&record::QEL_MD5_OID,                   "md5",                  digest,    null,    0},
    {nullptr,                                nullptr,                0,         0,       0},
};

struct AttributeType {
    const QelOid *oid;
    const char *name;
};

constexpr AttributeType attrList[] = {
    {commonName_OID,                    "CN"},
    {serial_OID,                        "SERIAL"},
    {countryName_OID,                   "C"},
    {locality_OID,                      "L"},
    {state_OID,                         "ST"},
    {streetAddress_OID,                 "STREET"},
    {orgname_OID,                       "O"},
    {orgunit_OID,                       "OU"},
    {emailAddress_OID,                  "EM"},
    {unstructuredName_OID,              "unstructuredName"},
    {contentType_OID,                   "contentType"},
    {messageDigest_OID,                 "messageDigest"},
    {signingTime_OID,                   "signingTime"},
    {countersignature_OID,              "countersignature"},
    {&record::challengePassword_OID,    "challengePassword"},
    {unstructuredAddress_OID,           "unstructuredAddress"},
    {extendedCertificateAttributes_OID, "extendedCertificateAttributes"},
    {nullptr,                           nullptr},
};
// clang-format on

constexpr uint32_t unknown = 0xFFFFFFFF;

// The first row with this identifier, or the closing row.
template <class Row> const Row &find_oid(const Row *row, const QelOid *oid) {
    for (; row->oid != nullptr; ++row) {
        int difference = 0;
        if (__qel_cmp_oid(row->oid, oid, &difference) == QEL_OK && difference == 0)
            break;
    }
    return *row;
}

const QelAlgListEntry &find_name(const char *name) {
    const QelAlgListEntry *row = qelAlgList;
    while (row->oid != nullptr && std::strcmp(row->name, name) != 0)
        ++row;
    return *row;
}

} // namespace

QelStatus qel_get_alglist(const QelAlgListEntry **list_out) {
    if (list_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *list_out = qelAlgList;
    return QEL_OK;
}

QelStatus __qel_alg2name(const QelOid *oid, const char **name_out) {
    if (oid == nullptr || name_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *name_out = find_oid(qelAlgList, oid).name;
    return QEL_OK;
}

QelStatus __qel_alg2AlgType(const QelOid *oid, uint32_t *type_out) {
    if (oid == nullptr || type_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    const QelAlgListEntry &row = find_oid(qelAlgList, oid);
    *type_out = row.oid != nullptr ? row.AlgType : unknown;
    return QEL_OK;
}

QelStatus __qel_alg2ParmType(const QelOid *oid, uint32_t *type_out) {
    if (oid == nullptr || type_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    const QelAlgListEntry &row = find_oid(qelAlgList, oid);
    *type_out = row.oid != nullptr ? row.ParmType : unknown;
    return QEL_OK;
}

QelStatus __qel_name2alg(const char *name, const QelOid **oid_out) {
    if (name == nullptr || oid_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *oid_out = find_name(name).oid;
    return QEL_OK;
}

QelStatus __qel_algname2ExportKeySize(const char *name, uint32_t *size_out) {
    if (name == nullptr || size_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *size_out = find_name(name).exportKeySize;
    return QEL_OK;
}

QelStatus __qel_attrtype2name(const QelOid *oid, const char **name_out) {
    if (oid == nullptr || name_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *name_out = find_oid(attrList, oid).name;
    return QEL_OK;
}
