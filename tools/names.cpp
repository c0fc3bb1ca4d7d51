// Names, identifiers and times as people read them.
#include "credential.h"

#include "der.h"
#include "status.h"
#include "text.h"
#include "texts.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>

namespace tool {
namespace {

struct OidRow {
    const char *dots;
    const char *name;
};

// Algorithms and extensions that certificates of the time carry. Attribute types of names are not
// here: the library has their keywords, and others are shown as dots.
constexpr OidRow oids[] = {
    {"2.5.8.1.1", "rsa"},
    {"1.2.840.113549.1.1.1", "rsaEncryption"},
    {"1.2.840.113549.1.1.2", "md2WithRSAEncryption"},
    {"1.2.840.113549.1.1.3", "md4WithRSAEncryption"},
    {"1.2.840.113549.1.1.4", "md5WithRSAEncryption"},
    {"1.2.840.113549.1.1.5", "sha1WithRSAEncryption"},
    {"1.2.840.113549.1.1.11", "sha256WithRSAEncryption"},
    {"1.3.14.7.2.3.1", "md2WithRSA"},
    {"1.3.14.3.2.3", "md5WithRSA"},
    {"1.3.14.3.2.12", "dsa"},
    {"1.3.14.3.2.13", "dsaWithSHA"},
    {"1.3.14.3.2.29", "sha1WithRSA"},
    {"1.2.840.10040.4.1", "dsa"},
    {"1.2.840.10040.4.3", "dsaWithSHA1"},
    {"1.2.840.113549.1.5.1", "pbeWithMD2AndDES-CBC"},
    {"1.2.840.113549.1.5.3", "pbeWithMD5AndDES-CBC"},
    {"1.2.840.113549.1.5.4", "pbeWithMD2AndRC2-CBC"},
    {"1.2.840.113549.1.5.6", "pbeWithMD5AndRC2-CBC"},
    {"1.2.840.113549.1.5.13", "PBES2"},
    {"2.5.29.1", "authorityKeyIdentifier (draft)"},
    {"2.5.29.2", "keyAttributes (draft)"},
    {"2.5.29.3", "certificatePolicies (draft)"},
    {"2.5.29.4", "keyUsageRestriction (draft)"},
    {"2.5.29.7", "subjectAltName (draft)"},
    {"2.5.29.8", "issuerAltName (draft)"},
    {"2.5.29.10", "basicConstraints (draft)"},
    {"2.5.29.14", "subjectKeyIdentifier"},
    {"2.5.29.15", "keyUsage"},
    {"2.5.29.16", "privateKeyUsagePeriod"},
    {"2.5.29.17", "subjectAltName"},
    {"2.5.29.18", "issuerAltName"},
    {"2.5.29.19", "basicConstraints"},
    {"2.5.29.30", "nameConstraints"},
    {"2.5.29.31", "cRLDistributionPoints"},
    {"2.5.29.32", "certificatePolicies"},
    {"2.5.29.33", "policyMappings"},
    {"2.5.29.35", "authorityKeyIdentifier"},
    {"2.5.29.36", "policyConstraints"},
    {"2.5.29.37", "extKeyUsage"},
    {"1.3.6.1.5.5.7.1.1", "authorityInfoAccess"},
    {"2.16.840.1.113730.1.1", "netscape-cert-type"},
    {"2.16.840.1.113730.1.2", "netscape-base-url"},
    {"2.16.840.1.113730.1.3", "netscape-revocation-url"},
    {"2.16.840.1.113730.1.4", "netscape-ca-revocation-url"},
    {"2.16.840.1.113730.1.7", "netscape-cert-renewal-url"},
    {"2.16.840.1.113730.1.8", "netscape-ca-policy-url"},
    {"2.16.840.1.113730.1.12", "netscape-ssl-server-name"},
    {"2.16.840.1.113730.1.13", "netscape-comment"},
};

enum class Coding { utf8, one_byte, two_bytes, four_bytes };

struct StringRow {
    uint8_t tag;
    const char *name;
    Coding coding;
};

// Character strings (X.680). T61String is read as ISO 8859-1, which is what issuers put into it.
constexpr StringRow strings[] = {
    {12, "UTF8String", Coding::utf8},          {18, "NumericString", Coding::one_byte},
    {19, "PrintableString", Coding::one_byte}, {20, "T61String", Coding::one_byte},
    {22, "IA5String", Coding::one_byte},       {26, "VisibleString", Coding::one_byte},
    {27, "GeneralString", Coding::one_byte},   {28, "UniversalString", Coding::four_bytes},
    {30, "BMPString", Coding::two_bytes},
};

bool read_string(const StringRow &row, std::span<const uint8_t> contents, std::string &utf8) {
    switch (row.coding) {
    case Coding::one_byte:
        return to_utf8(contents, 1, utf8);
    case Coding::two_bytes:
        return to_utf8(contents, 2, utf8);
    case Coding::four_bytes:
        return to_utf8(contents, 4, utf8);
    case Coding::utf8:
        break;
    }
    utf8.assign(contents.begin(), contents.end());
    return is_utf8(utf8);
}

NameValue name_value(const QelAva &ava) {
    NameValue value;
    value.type = oid_text(ava.type);
    const char *keyword = nullptr;
    __qel_attrtype2name(ava.type, &keyword);
    // The library's table also holds the attributes of requests, which printable names cannot
    // carry.
    const bool in_names = keyword != nullptr && keyword[0] >= 'A' && keyword[0] <= 'Z';
    value.keyword = in_names ? keyword : value.type;
    value.string_type = "BER";
    if (ava.value == nullptr)
        return value;
    const std::span<const uint8_t> encoded(ava.value->value, ava.value->length);
    std::span<const uint8_t> rest = encoded;
    Element element;
    if (take_element(rest, element) && rest.empty()) {
        for (const StringRow &row : strings) {
            if (row.tag != element.tag)
                continue;
            value.string_type = row.name;
            value.readable = read_string(row, element.contents, value.text);
        }
    }
    if (!value.readable)
        value.text = "#" + hex(encoded);
    return value;
}

// A value as it stands in a name: what would be taken for the name's own syntax has a backslash.
std::string value_text(const NameValue &value, Charset charset) {
    if (!value.readable)
        return value.text;
    std::string text;
    for (const char c : escaped(value.text, charset)) {
        if (c == ',' || c == '+' || (c == '#' && text.empty()))
            text += '\\';
        text += c;
    }
    return text;
}

std::string rfc3339(std::chrono::sys_seconds moment) {
    using namespace std::chrono;
    const auto midnight = floor<days>(moment);
    const year_month_day date{midnight};
    const hh_mm_ss clock{moment - midnight};
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text;
}

} // namespace

std::string oid_text(const QelOid *oid) {
    std::string text;
    for (std::size_t i = 0; oid != nullptr && i < oid->count; ++i)
        text += (i != 0 ? "." : "") + std::to_string(oid->value[i]);
    return text;
}

const char *oid_name(const QelOid *oid) {
    const std::string dots = oid_text(oid);
    for (const OidRow &row : oids)
        if (dots == row.dots)
            return row.name;
    // Under the enterprise number that the library was built with.
    int difference = 1;
    __qel_cmp_oid(oid, QEL_PbeWithMD5AndDES3_CBC_OID, &difference);
    return difference == 0 ? "pbeWithMD5AndDES3-CBC" : nullptr;
}

std::string algorithm_text(const QelAlgId *algorithm) {
    if (algorithm == nullptr)
        return "(none)";
    const char *name = oid_name(algorithm->algorithm);
    return name != nullptr ? name : oid_text(algorithm->algorithm);
}

std::vector<std::vector<NameValue>> name_values(const QelName *name) {
    std::vector<std::vector<NameValue>> values;
    for (const QelRdnSeq *rdns = name != nullptr ? name->rdns : nullptr; rdns != nullptr;
         rdns = rdns->next) {
        auto &rdn = values.emplace_back();
        for (const QelRdn *node = rdns->rdn; node != nullptr; node = node->next)
            if (node->ava != nullptr)
                rdn.push_back(name_value(*node->ava));
    }
    return values;
}

std::string name_text(const QelName *name, Charset charset) {
    const auto values = name_values(name);
    std::string text;
    for (auto rdn = values.rbegin(); rdn != values.rend(); ++rdn) {
        text += rdn != values.rbegin() ? ", " : "";
        for (const NameValue &value : *rdn)
            text += (&value != rdn->data() ? " + " : "") + value.keyword + "=" +
                    value_text(value, charset);
    }
    return text.empty() ? "(empty name)" : text;
}

namespace {

// The library's printable form, or null and why.
std::unique_ptr<char, FreeBlock> normalised(QelContext *context, const QelName *name,
                                            QelStatus &status) {
    char *text = nullptr;
    status = name != nullptr ? qel_dn2str(context, name, &text) : QelStatus{QEL_ERR_BAD_PARAM};
    return std::unique_ptr<char, FreeBlock>(status == QEL_OK ? text : nullptr);
}

} // namespace

Json name_json(QelContext *context, const QelName *name) {
    Json json;
    json["rdns"] = Json::array();
    for (const auto &rdn : name_values(name)) {
        Json list = Json::array();
        for (const NameValue &value : rdn) {
            Json one;
            one["type"] = value.type;
            one["keyword"] = value.keyword != value.type ? Json(value.keyword) : Json(nullptr);
            one["string_type"] = value.string_type;
            one["value"] = value.readable ? Json(value.text) : Json(nullptr);
            if (!value.readable)
                one["hex"] = value.text.empty() ? "" : value.text.substr(1);
            list.push_back(one);
        }
        json["rdns"].push_back(list);
    }
    QelStatus status;
    const auto text = normalised(context, name, status);
    json["library_text"] = text ? Json(utf8_or_latin1(text.get())) : Json(nullptr);
    if (!text)
        json["library_status"] = status_json(status);
    return json;
}

std::string library_name(QelContext *context, const QelName *name) {
    QelStatus status;
    const auto text = normalised(context, name, status);
    return text ? printable(utf8_or_latin1(text.get())) : "none (" + status_words(status) + ")";
}

std::string time_text(const QelUTCTime *time, bool apply_offset) {
    using namespace std::chrono;
    if (time == nullptr)
        return "not given";
    const int full_year = time->year + (time->year < 69 ? 2000 : 1900);
    const year_month_day date{year{full_year}, month{static_cast<unsigned>(time->month)},
                              day{static_cast<unsigned>(time->day)}};
    char text[64];
    if (!date.ok() || time->hour < 0 || time->hour > 24 || time->minute < 0 || time->minute > 59 ||
        time->second < 0 || time->second > 59) {
        std::snprintf(text, sizeof text, "not a time (%d-%d-%d %d:%d:%d)", full_year, time->month,
                      time->day, time->hour, time->minute, time->second);
        return text;
    }
    const int offset = apply_offset && time->utc != 1 ? time->mindiff : 0;
    const sys_seconds moment =
        sys_days{date} + hours{time->hour} + minutes{time->minute - offset} + seconds{time->second};
    return rfc3339(moment);
}

bool has_offset(const QelValidity *validity) {
    if (validity == nullptr)
        return false;
    for (const QelUTCTime *time : {validity->notBefore, validity->notAfter})
        if (time_text(time) != time_text(time, false))
            return true;
    return false;
}

std::string validity_state(const QelValidity *validity) {
    const QelStatus status = __qel_is_current(validity);
    if (status == QEL_OK)
        return "valid";
    if (status != QEL_ERR_KEY_EXPIRED || validity == nullptr || validity->notBefore == nullptr)
        return "unknown";
    const auto now = std::chrono::system_clock::now();
    const std::string present = rfc3339(std::chrono::floor<std::chrono::seconds>(now));
    return present <= time_text(validity->notBefore, false) ? "not yet valid" : "expired";
}

std::string validity_words(const QelValidity *validity) {
    const std::string state = validity_state(validity);
    return text_of(state == "valid"           ? Text::valid
                   : state == "not yet valid" ? Text::not_yet_valid
                   : state == "expired"       ? Text::expired
                                              : Text::validity_unknown);
}

RsaNumbers rsa_numbers(const QelKeyInfo *key) {
    RsaNumbers numbers;
    if (key == nullptr)
        return numbers;
    std::span<const uint8_t> bytes(key->pubKey.value, key->pubKey.length / 8);
    Element sequence, modulus, exponent;
    if (!take_element(bytes, sequence) || sequence.tag != 0x30 ||
        !take_element(sequence.contents, modulus) || modulus.tag != 0x02 ||
        !take_element(sequence.contents, exponent) || exponent.tag != 0x02 ||
        !sequence.contents.empty())
        return numbers;
    const auto without_zeroes = [](std::span<const uint8_t> number) {
        while (!number.empty() && number[0] == 0)
            number = number.subspan(1);
        return number;
    };
    const auto digits = without_zeroes(modulus.contents);
    if (digits.empty())
        return numbers;
    numbers.bits = static_cast<unsigned>(digits.size()) * 8;
    for (uint8_t top = digits[0]; (top & 0x80) == 0; top = static_cast<uint8_t>(top << 1))
        --numbers.bits;
    numbers.modulus = hex(digits);
    numbers.exponent = hex(without_zeroes(exponent.contents));
    return numbers;
}

std::string exponent_text(const RsaNumbers &rsa) {
    return rsa.exponent.size() <= 8
               ? std::to_string(std::strtoul(rsa.exponent.c_str(), nullptr, 16))
               : "0x" + rsa.exponent;
}

std::string key_text(const QelKeyInfo *key) {
    const RsaNumbers rsa = rsa_numbers(key);
    std::string text = key != nullptr ? algorithm_text(key->algorithm) : "(none)";
    if (rsa.bits != 0)
        text += ", " + std::to_string(rsa.bits) + " bits, exponent " + exponent_text(rsa);
    return text;
}

std::string key_fingerprint(QelContext *context, const QelKeyInfo *key) {
    return fingerprint(
        context, encode(context, key, QEL_PDU_SubjectPublicKeyInfo, text_of(Text::the_public_key)),
        algorithm_named("md5"));
}

Json key_json(QelContext *context, const QelKeyInfo *key) {
    const RsaNumbers rsa = rsa_numbers(key);
    Json json;
    json["algorithm"] = algorithm_text(key->algorithm);
    json["bits"] = rsa.bits != 0 ? Json(rsa.bits) : Json(nullptr);
    json["exponent"] = rsa.bits != 0 ? Json(exponent_text(rsa)) : Json(nullptr);
    json["md5_fingerprint"] = key_fingerprint(context, key);
    return json;
}

Json exponent_json(const QelKeyInfo *key) {
    const RsaNumbers rsa = rsa_numbers(key);
    return rsa.bits != 0 ? Json(exponent_text(rsa)) : Json(nullptr);
}

std::string small_exponent_note(const QelKeyInfo *key) {
    constexpr unsigned long usual = 65537;
    const RsaNumbers rsa = rsa_numbers(key);
    if (rsa.bits == 0 || rsa.exponent.size() > 8 ||
        std::strtoul(rsa.exponent.c_str(), nullptr, 16) >= usual)
        return "";
    return text_of(Text::small_exponent, {exponent_text(rsa)});
}

} // namespace tool
