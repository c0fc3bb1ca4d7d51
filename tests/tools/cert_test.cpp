// qel cert show and qel cert verify, on certificates of the nineties and on spoiled ones.
#include "tools/run.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace {

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return std::toupper(c); });
    return text;
}

// GeneralizedTime in the validity, which X.509 of the time does not have.
const std::string kUnreadable = "certs/md5/wrong-sigalg-2015.der";

TEST(CertShow, AgreesWithTheOracleOnEveryCertificate) {
    for (const std::string folder : {"certs/md2", "certs/md5"}) {
        for (const std::string &name : vector_names(folder)) {
            SCOPED_TRACE(name);
            if (name == kUnreadable)
                continue;
            const std::string path = vector_path(name);
            const Ran ran = qel({"cert", "show", "--full", "--json", path});
            ASSERT_EQ(ran.exit, 0) << ran.err;
            const Json cert = ran.json()["certificates"][0];
            const auto oracle_says = [&](std::vector<std::string> words) {
                words.insert(words.begin(), {"x509", "-inform", "DER", "-in", path, "-noout"});
                return openssl(words).out;
            };
            const std::string serial = oracle_says({"-serial"});
            std::string ours = upper(cert["serial"]);
            if (ours.size() > 2 && ours.starts_with("00")) // a sign, not a digit
                ours.erase(0, 2);
            if (serial.find('-') == serial.npos) { // the oracle shows negative numbers as such
                EXPECT_EQ("serial=" + ours + "\n", serial);
            }
            EXPECT_EQ(cert["md5_fingerprint"],
                      openssl({"dgst", "-md5", "-r", path}).out.substr(0, 32));
            EXPECT_EQ(cert["der"], to_hex(read_file(path)));
            // One has indefinite lengths.
            EXPECT_EQ(holds(cert["notes"].dump(), "not the DER encoding"),
                      name == "certs/md5/verisign-class-1-ca-individual-subscri-96.der");
            if (cert["public_key"].contains("bits")) {
                const std::string modulus = upper(cert["public_key"]["modulus"]);
                EXPECT_EQ("Modulus=" + modulus.substr(modulus[0] == '0' ? 1 : 0) + "\n",
                          oracle_says({"-modulus"}));
                const std::size_t bits = cert["public_key"]["bits"];
                EXPECT_EQ((bits + 7) / 8 * 2, modulus.size());
            }
            EXPECT_EQ(cert["inner_algorithm"], cert["signature_algorithm"]);
        }
    }
}

struct VerdictCase {
    const char *reason;
    const char *certificate, *issuer; // in certs/md5
    const char *option;
    int exit, status;
    const char *note; // part of a note, or empty
};

// clang-format off
const VerdictCase kVerdicts[] = {
    {"valid until 2037", "system-on-sectra-wise-itivity-12", "self", "--batch", 0, 0, ""},
    {"modulus without a sign byte", "root-agency-96", "self", "--batch", 0, 0, ""},
    {"expired, the signature good", "dodgy-ca-97", "self", "--batch", 1, 30, "signature is good"},
    {"expired, which is allowed", "dodgy-ca-97", "self", "--allow-expired", 0, 30, "signature is good"},
    {"only the signature asked for", "dodgy-ca-97", "self", "--signature-only", 0, 0, "not looked at"},
    {"critical extension", "globalsign-root-ca-98", "self", "--batch", 1, 43, ""},
    {"critical extension, expiry allowed", "globalsign-root-ca-98", "self", "--allow-expired", 1, 43, ""},
    {"old key identifier", "md5-rsa-nasa-pilot-ca-96", "self", "--batch", 1, 47, ""},
    {"old key identifier, used as RSA", "md5-rsa-nasa-pilot-ca-96", "self", "--signature-only", 0, 0, "2.5.8.1.1"},
    {"issuer's name, another key", "test-ee-17", "test-sub-ca-17", "--signature-only", 1, 16, ""},
    {"own key, not self-signed", "brother-2-97", "self", "--batch", 1, 16, "--issuer"},
    {"issuer's key of the year after", "brother-2-97", "dodgy-ca-98", "--allow-expired", 1, 16, ""},
    {"issuer of another name", "brother-2-97", "cryptsoft-dev-ca-97", "--allow-expired", 1, 16, "another issuer"},
    {"DSA key as issuer", "brother-2-97", "eric-the-young-97", "--batch", 1, 47, ""},
    {"own key of exponent 3", "entrust-demo-web-ca-96", "self", "--allow-expired", 0, 30, "public exponent 3:"},
    {"issuer's key of exponent 3", "paul-a-cooke-96", "entrust-demo-web-ca-96", "--signature-only", 0, 0, "public exponent 3:"},
    {"unknown algorithm", "../sha256/gnutls-test-ca-11", "self", "--signature-only", 1, 32, "sha256WithRSAEncryption is not supported"},
};
// clang-format on

TEST(CertVerify, VerdictIsTheLibrarysUnlessAnOptionAsksForLess) {
    for (const VerdictCase &row : kVerdicts) {
        SCOPED_TRACE(row.reason);
        const auto path = [](const std::string &name) {
            return vector_path("certs/md5/" + name + ".der");
        };
        std::vector<std::string> words = {"cert", "verify", "--json", path(row.certificate),
                                          row.option};
        if (row.issuer != std::string("self"))
            words.insert(words.end(), {"--issuer", path(row.issuer)});
        const Ran json = qel(words);
        EXPECT_EQ(json.exit, row.exit) << json.err;
        EXPECT_EQ(json.json()["status"]["number"], row.status);
        const std::string notes = json.json()["notes"].dump();
        EXPECT_TRUE(holds(notes, row.note)) << notes;
        const bool small = holds(row.note, "exponent");
        EXPECT_EQ(holds(notes, "exponent"), small) << notes;
        words.erase(std::find(words.begin(), words.end(), "--json"));
        const Ran plain = qel(words);
        EXPECT_EQ(plain.exit, row.exit);
        EXPECT_EQ(holds(plain.out, ": NOT verified"), row.exit != 0) << plain.out;
        EXPECT_EQ(holds(plain.err, "qel: cert verify: "), row.exit != 0) << plain.err;
        EXPECT_EQ(holds(plain.err, "warning: the key has the public exponent"), small) << plain.err;
        EXPECT_FALSE(holds(plain.err, "In a name")) << plain.err;
        if (row.exit != 0) {
            const Ran told = qel({"explain", "--json", std::to_string(row.status)});
            EXPECT_EQ(told.json()["statuses"][0]["verification_exit_status"], row.exit);
        }
    }
    EXPECT_EQ(qel({"cert", "verify", vector_path(kUnreadable)}).exit, 3);
}

TEST(CertShow, LargestVersionDoesNotOverflow) {
    Bytes cert = vector_file("certs/md5/test-ee-17.der");
    const Bytes version = from_hex("a003020102"), largest = from_hex("a00602047fffffff");
    const auto found = std::search(cert.begin(), cert.end(), version.begin(), version.end());
    ASSERT_EQ(found - cert.begin(), 8); // behind two headers with lengths of two bytes
    cert.insert(cert.erase(found, found + 5), largest.begin(), largest.end());
    for (const std::size_t at : {2U, 6U}) {
        const unsigned length = cert[at] * 256U + cert[at + 1] + 3;
        cert[at] = static_cast<uint8_t>(length / 256);
        cert[at + 1] = static_cast<uint8_t>(length % 256);
    }
    const TemporaryFolder folder;
    write_file(folder.path("cert.der"), cert);
    const Ran ran = qel({"cert", "show", "--json", folder.path("cert.der")});
    ASSERT_EQ(ran.exit, 0) << ran.err;
    EXPECT_EQ(ran.json()["certificates"][0]["version"], 2147483648LL);
}

TEST(CertVerify, NoFlippedBitVerifies) {
    const TemporaryFolder folder;
    const Bytes good = vector_file("certs/md2/class-3-public-primary-certification-a-96.der");
    const std::string path = folder.path("flipped.der");
    for (std::size_t bit = 3; bit < good.size() * 8; bit += 61) {
        Bytes flipped = good;
        flipped[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
        // The NULL parameters of the outer algorithm stand before the signature, unsigned.
        if (bit / 8 == good.size() - 134 || bit / 8 == good.size() - 133)
            continue;
        write_file(path, flipped);
        for (const char *option : {"--allow-expired", "--signature-only"}) {
            const int exit = qel({"cert", "verify", option, path}).exit;
            EXPECT_TRUE(exit == 1 || exit == 3) << "bit " << bit << ": exit " << exit;
        }
    }
}

TEST(CertVerify, KeyOfTheIssuerMayComeBareAndFromStandardInput) {
    const std::string issuer = vector_path("certs/md5/dodgy-ca-97.der");
    const TemporaryFolder folder;
    openssl({"x509", "-inform", "DER", "-in", issuer, "-noout", "-pubkey", "-out",
             folder.path("issuer.pub")});
    const std::string path = vector_path("certs/md5/brother-2-97.der");
    EXPECT_EQ(
        qel({"cert", "verify", "--allow-expired", path, "-i", folder.path("issuer.pub")}).exit, 0);
    How how = {.input = read_file(issuer)};
    EXPECT_EQ(qel({"cert", "verify", "--allow-expired", path, "-i", "-"}, how).exit, 0);

    // Another's certificate, one of the same name with another key, and the right one.
    how.input.clear();
    for (const char *name : {"cryptsoft-dev-ca-97", "dodgy-ca-98", "dodgy-ca-97"}) {
        const std::string file = vector_path(std::string("certs/md5/") + name + ".der");
        const Bytes text = bytes_of(qel({"armor", file}).out);
        how.input.insert(how.input.end(), text.begin(), text.end());
    }
    const Ran ran = qel({"cert", "verify", "--allow-expired", path, "-i", "-"}, how);
    EXPECT_EQ(ran.exit, 0) << ran.out;
    EXPECT_TRUE(holds(ran.out, "the key of standard input, block 3")) << ran.out;
    EXPECT_FALSE(holds(ran.out, "another issuer")) << ran.out;

    // The right key under another name does not help where there is an issuer of the name.
    Bytes renamed = read_file(issuer);
    const Bytes name = bytes_of("Dodgy");
    *std::find_end(renamed.begin(), renamed.end(), name.begin(), name.end()) = 'L';
    write_file(folder.path("ca.der"), renamed);
    const std::string same_name = vector_path("certs/md5/dodgy-ca-98.der");
    how.input = bytes_of(qel({"armor", same_name}).out + qel({"armor", folder.path("ca.der")}).out);
    EXPECT_EQ(qel({"cert", "verify", "--allow-expired", path, "-i", "-"}, how).exit, 1);
}

TEST(CertShow, EveryBlockOfABundleAndNothingElse) {
    const TemporaryFolder folder;
    const std::string path = folder.path("bundle.pem");
    const std::string first = text_of(vector_file("armour/01.pem"));
    std::string x509 = text_of(vector_file("armour/testx509.pem"));
    for (const std::size_t at : {x509.rfind("CERTIFICATE"), x509.find("CERTIFICATE")})
        x509.insert(at, "X509 ");
    write_file(path,
               bytes_of("words before\n" + first + "between\n" +
                        text_of(vector_file("pkcs8/unenc-rsa-pkcs8.pem")) + x509 + "after\n"));
    const Ran ran = qel({"cert", "show", "--json", path});
    EXPECT_EQ(ran.exit, 0) << ran.err;
    EXPECT_EQ(ran.json()["certificates"].size(), 2U);
    const Ran plain = qel({"cert", "show"}, {.input = read_file(path)});
    EXPECT_TRUE(holds(plain.out, "standard input, block 1 (CERTIFICATE, line 2)")) << plain.out;
    EXPECT_TRUE(holds(plain.out, "standard input, block 3 (X509 CERTIFICATE, ")) << plain.out;

    // A cut one does not hide the good ones around it.
    const How how = {.input = bytes_of(first + first.substr(0, 400) + "\n" + first)};
    EXPECT_TRUE(holds(qel({"cert", "show"}, how).out, "block 3 (CERTIFICATE"));
    const Ran json = qel({"cert", "show", "--json"}, how);
    EXPECT_EQ(json.exit, 3);
    EXPECT_EQ(json.json()["certificates"].size(), 2U);
    EXPECT_TRUE(holds(json.json()["errors"].dump(), "END line is missing")) << json.out;
    EXPECT_TRUE(holds(json.err, "block 2")) << json.err;
}

TEST(CertShow, OffsetsOfTimesAreAppliedAndTheLibrarysReadingSaid) {
    const std::string path = vector_path("certs/md5/steve-schoch-96.der");
    const Json validity =
        qel({"cert", "show", "--json", path}).json()["certificates"][0]["validity"];
    EXPECT_EQ(validity["not_before"], "1996-05-28T05:49:05Z"); // 13:49:05+0800
    EXPECT_EQ(validity["library_not_before"], "1996-05-28T13:49:05Z");
    EXPECT_EQ(validity["state"], "expired");
    EXPECT_TRUE(holds(qel({"cert", "show", path}).out, "without the offset"));
    const Json plain = qel({"cert", "show", "--json", vector_path("armour/01.pem")}).json();
    EXPECT_FALSE(plain["certificates"][0]["validity"].contains("library_not_before"));
}

// ---- Names -------------------------------------------------------------------------------------

// A string in a certificate is replaced by one of the same size.
struct NameCase {
    const char *reason;
    const char *from, *to;  // tag, length and contents, in hexadecimal
    const char *shown;      // part of the name on a terminal of UTF-8
    const char *shown_in_c; // in the locale "C", if different
    const char *value;      // in JSON; null where the value is given in hexadecimal
};

const char *const kTestEe = "0c0754657374204545";                // "Test EE", UTF8String
const char *const kWesternCape = "130c5765737465726e2043617065"; // "Western Cape", PrintableString

// clang-format off
const NameCase kNames[] = {
    {"as it is", kTestEe, kTestEe, "CN=Test EE", nullptr, "Test EE"},
    {"terminal's escape", kTestEe, "0c071b5b324a1b5b6d", R"(CN=\x1b[2J\x1b[m)", nullptr, "\x1b[2J\x1b[m"},
    {"a new line", kTestEe, "0c07410a202078707a", R"(CN=A\x0a  xpz)", nullptr, "A\n  xpz"},
    {"likeness of syntax", kTestEe, "0c075c7831622c2b23", R"(CN=\\x1b\,\+#)", nullptr, R"(\x1b,+#)"},
    {"likeness of hexadecimal", kTestEe, "0c0723303031323334", R"(CN=\#001234)", nullptr, "#001234"},
    {"beyond ASCII", kTestEe, "0c07c3a9c3bce282ac", "CN=éü€", R"(CN=\u{e9}\u{fc}\u{20ac})", "éü€"},
    {"change of direction", kTestEe, "0c07e280ae41424344", R"(CN=\u{202e}ABCD)", nullptr, "\u202eABCD"},
    {"control of eight bits", kTestEe, "0c07c29b4c4d4e4f50", R"(CN=\u{9b}LMNOP)", nullptr, "\u009bLMNOP"},
    {"UTF-8 that is none", kTestEe, "0c07c3284142434445", "CN=#0c07c3284142434445", nullptr, nullptr},
    {"T61String", kTestEe, "14074dfc6c6c657221", "CN=Müller!", R"(CN=M\u{fc}ller!)", "Müller!"},
    {"no string at all", kTestEe, "040700010203040506", "CN=#040700010203040506", nullptr, nullptr},
    {"BMPString, surrogates", kWesternCape, "1e0c004120acd83dde0000420043", "ST=A€😀BC", R"(ST=A\u{20ac}\u{1f600}BC)", "A€😀BC"},
    {"BMPString, half a pair", kWesternCape, "1e0c004120acd83d004200430044", "ST=#1e0c004120acd83d", nullptr, nullptr},
    {"UniversalString", kWesternCape, "1c0c00000041000020ac0001f600", "ST=A€😀", R"(ST=A\u{20ac}\u{1f600})", "A€😀"},
    {"beyond Unicode", kWesternCape, "1c0c00000041001100000001f600", "ST=#1c0c00000041", nullptr, nullptr},
};
// clang-format on

TEST(CertShow, NamesOfAnyKindAreShownAndDoNoHarm) {
    const TemporaryFolder folder;
    const std::string path = folder.path("patched.der");
    for (const NameCase &row : kNames) {
        SCOPED_TRACE(row.reason);
        const char *file =
            row.from == kTestEe ? "certs/md5/test-ee-17.der" : "certs/md5/thawte-server-ca-96.der";
        write_file(path, patched(vector_file(file), from_hex(row.from), from_hex(row.to)));
        for (const char *detail : {"--batch", "--full"}) {
            const Ran plain = qel({"cert", "show", detail, path});
            EXPECT_EQ(plain.exit, 0) << plain.err;
            EXPECT_TRUE(holds(plain.out, row.shown)) << plain.out;
            EXPECT_EQ(plain.out.find('\x1b'), plain.out.npos);
        }
        const char *in_c = row.shown_in_c != nullptr ? row.shown_in_c : row.shown;
        EXPECT_TRUE(holds(qel({"cert", "show", path}, {.locale = "C"}).out, in_c)) << in_c;

        const Ran json = qel({"cert", "show", "--json", path});
        const Json cert = json.json()["certificates"][0];
        const Json &names = cert[row.from == kTestEe ? "subject_name" : "issuer_name"]["rdns"];
        const std::string keyword = std::string(row.shown).substr(0, 2);
        for (const Json &rdn : names)
            if (rdn[0]["keyword"] == keyword) {
                EXPECT_EQ(rdn[0]["value"], row.value != nullptr ? Json(row.value) : Json(nullptr));
                EXPECT_EQ(rdn[0].contains("hex"), row.value == nullptr);
            }
        EXPECT_TRUE(std::all_of(json.out.begin(), json.out.end(), [](unsigned char byte) {
            return byte == '\n' || (byte >= 32 && byte < 127);
        }));
    }
}

TEST(CertShow, SaysWhatTheLibraryMakesOfAName) {
    const TemporaryFolder folder;
    const std::string path = folder.path("patched.der");
    // The common name becomes a given name, which has no keyword.
    write_file(path,
               patched(vector_file("certs/md5/test-ee-17.der"), from_hex("06035504030c0754657374"),
                       from_hex("060355042a0c0754657374")));
    const Ran full = qel({"cert", "show", "--full", path});
    EXPECT_EQ(full.exit, 0) << full.err;
    EXPECT_TRUE(holds(full.out, "2.5.4.42=Test EE")) << full.out;
    EXPECT_TRUE(holds(full.out, "none (status 20 QEL_ERR_UNSUPPORTED_ATTR")) << full.out;
    const Json name =
        qel({"cert", "show", "--json", path}).json()["certificates"][0]["subject_name"];
    EXPECT_EQ(name["library_text"], nullptr);
    EXPECT_EQ(name["library_status"]["number"], 20);

    const Json plain =
        qel({"cert", "show", "--json", vector_path("certs/md5/root-agency-96.der")}).json();
    EXPECT_EQ(plain["certificates"][0]["subject_name"]["library_text"], "CN=ROOT AGENCY");
    EXPECT_EQ(plain["certificates"][0]["subject"], "CN=Root Agency");
}

// Text of tests/qel/printing, with blanks before each line.
std::string account(const std::string &name, const std::string &blanks = "") {
    std::istringstream lines(text_of(vector_file("../qel/printing/" + name)));
    std::string text;
    for (std::string line; std::getline(lines, line);)
        text += (line.empty() ? "" : blanks) + line + "\n";
    return text;
}

TEST(CertShow, LibrarysAccountInFullAndForTheLog) {
    setenv("TZ", "UTC", 1);
    const std::string dodgy = vector_path("certs/md5/dodgy-ca-97.der");
    const std::string annex = vector_path("certs/md5/md5-rsa-nasa-pilot-ca-96.der");
    const Ran full = qel({"cert", "show", "--full", annex});
    EXPECT_TRUE(holds(full.out, "\n" + account("annex-rsa.txt", "  "))) << full.out;
    EXPECT_FALSE(holds(full.out, "Library's account:")) << full.out;

    const Ran log = qel({"cert", "show", "--log", dodgy, annex});
    EXPECT_EQ(log.exit, 0) << log.err;
    EXPECT_TRUE(log.out.starts_with("Certificate Creation Time and Date: "));
    EXPECT_EQ(log.out.find(account("log.txt")), log.out.find('\n') + 1) << log.out;
    for (const char *option : {"--full", "--json"})
        EXPECT_EQ(qel({"cert", "show", "--log", option, dodgy}).exit, 2);
}

// A name that reads like another line gets into no account.
TEST(CertShow, NoNameBreaksALine) {
    const TemporaryFolder folder;
    const std::string path = folder.path("patched.der");
    for (const char *name : {"0a53756e", "1b5b6d41"}) { // "\nSun", "\e[mA"
        Bytes cert = vector_file("certs/md5/dodgy-ca-97.der");
        const Bytes from = bytes_of("Dodgy CA");
        const Bytes to = from_hex(name) + bytes_of("lamp");
        auto at = std::search(cert.begin(), cert.end(), from.begin(), from.end());
        cert[static_cast<std::size_t>(at - cert.begin()) - 2] = 0x14; // T61String
        std::copy(to.begin(), to.end(), at);
        write_file(path, cert);
        const Ran full = qel({"cert", "show", "--full", path});
        EXPECT_EQ(full.exit, 0);
        EXPECT_TRUE(holds(full.out, "Library's account: none (")) << full.out;
        EXPECT_TRUE(holds(full.out, "Signature bits:")) << full.out;
        const Ran log = qel({"cert", "show", "--log", path, path}, {.together = true});
        EXPECT_EQ(log.exit, 3);
        EXPECT_FALSE(holds(log.out, "Issuer")) << log.out;
        for (const Ran &ran : {full, log}) {
            EXPECT_FALSE(holds(ran.out, "\nSUN") || holds(ran.out, "\x1b")) << ran.out;
        }
    }
}

} // namespace
