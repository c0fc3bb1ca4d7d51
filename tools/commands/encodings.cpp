// dn, armor, dearmor, asn1
#include "table.h"

namespace tool {
namespace {

constexpr Option dn_options[] = {
    {"der", 0, nullptr, nullptr, false, "print the DER encoding in hexadecimal instead"},
    {"output", 'o', "FILE", nullptr, false, "write the DER encoding of the one name to a file"},
};
constexpr Example dn_examples[] = {
    {"qel dn 'cn=alice, o=acme, c=us'", "prints CN=ALICE, O=ACME, C=US"},
    {"qel dn --der 'CN=Alice'", "the encoded name"},
};

constexpr Option armor_options[] = {
    {"type", 't', "TYPE",
     "auto|none|certificate|keypkg|request|signature|signature-and-data|encrypted-data|"
     "encryption-info|encryption-info-and-data",
     false, "marker lines (default auto: by what the file holds, or none)"},
    {"output", 'o', "FILE", nullptr, false, "where the text goes (default standard output)"},
    {"force", 0, nullptr, nullptr, false, "overwrite a file with a key package"},
};
constexpr Example armor_examples[] = {
    {"qel armor cert.der > cert.pem", "a certificate between its marker lines"},
    {"qel armor -t none data.bin", "bare base 64 in lines of 64 characters"},
};

constexpr Option dearmor_options[] = {
    {"block", 'b', "N", nullptr, false, "which block, counted from 1, where there are several"},
    {"list", 'l', nullptr, nullptr, false, "list the blocks instead"},
    {"output", 'o', "FILE", nullptr, false, "where the bytes go (default standard output)"},
    {"force", 0, nullptr, nullptr, false, "overwrite a file with a private key or key package"},
};
constexpr Example dearmor_examples[] = {
    {"qel dearmor cert.pem > cert.der", "the bytes of a certificate"},
    {"qel dearmor -b 2 -o key.der server.pem", "the second block of a file"},
};

constexpr Option asn1_options[] = {
    {"list", 'l', nullptr, nullptr, false, "list the types and their numbers"},
    {"encode", 'e', "RULES", "der|ber|indefinite", false,
     "encode the value again instead of printing it"},
    {"output", 'o', "FILE", nullptr, false, "where the encoding goes (default standard output)"},
    {"force", 0, nullptr, nullptr, false, "overwrite a file with a private key or key package"},
};
constexpr Example asn1_examples[] = {
    {"qel asn1 Certificate server.pem", "a certificate's value"},
    {"qel asn1 ContentInfo -e indefinite -o out.ber in.p7", "with indefinite lengths"},
};

constexpr Command encoding_table[] = {
    {"dn", "Parse a distinguished name and print it normalised", "NAME...", 1, any_type,
     "Reads printable names, TYPE=VALUE parts joined by commas, the most specific first, and "
     "prints their normalised form. Types: CN, SERIAL, C, L, O, OU, ST, EM, STREET. A plus sign "
     "joins parts of one level; a backslash keeps a comma inside a value.",
     dn_options, dn_examples, run_dn},
    {"armor", "Put bytes into printable armour", "[FILE]", 0, 1,
     "Writes base 64 in lines of 64 characters (RFC 1421), between marker lines for the type. Text "
     "that is armoured already is refused, except under the type none.",
     armor_options, armor_examples, run_armor},
    {"dearmor", "Take bytes out of printable armour", "[FILE]", 0, 1,
     "Finds armour under any label in a text, passes over what stands around it, and writes the "
     "bytes.",
     dearmor_options, dearmor_examples, run_dearmor},
    {"asn1", "Decode, print and encode ASN.1 values", "[TYPE [FILE]]", 0, 2,
     "Decodes a value of the named or numbered type and prints its fields. Private keys, and what "
     "encrypts them, are never printed, and taken for no other type than their own.\n\n"
     "With --encode the value is written again: under der where the library encodes the type so "
     "(Name, CertificateInfo, Certificate, KeyPkgInfo, DigestInfo, CertificationRequestInfo), "
     "under ber, or with indefinite lengths.",
     asn1_options, asn1_examples, run_asn1},
};

} // namespace

std::span<const Command> encoding_commands() {
    return encoding_table;
}

} // namespace tool
