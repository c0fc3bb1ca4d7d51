// qel issue: a small certification authority.
#include "account.h"
#include "armour.h"
#include "cipher.h"
#include "command.h"
#include "file_lock.h"
#include "key_package.h"
#include "request.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace tool {
namespace {

constexpr uint64_t usual_days = 365;
constexpr uint64_t most_days = 30000;
constexpr std::size_t longest_serial = 20; // bytes
constexpr std::size_t random_serial = 16;
constexpr int64_t day = 86400;
constexpr int64_t first_moment = 0;         // 1970
constexpr int64_t last_moment = 2524607999; // 2049, the last year of UTCTime
constexpr const char *certificate_label = "CERTIFICATE";

// ---- Whom a certificate is for -----------------------------------------------------------------

struct Applicant {
    std::string where; // safe to print
    const QelName *name = nullptr;
    const QelKeyInfo *key = nullptr;
    // What they belong to.
    Name subject;
    std::vector<Request> requests;
    PublicKey bare;
};

// Whoever asks must have shown that the private key is theirs.
void check_request(QelContext *context, const Request &request) {
    const QelStatus status = signature_status(context, request);
    if (status == QEL_OK)
        return;
    Failure failure = library_failure(status, text_of(Text::cannot_issue_for, {request.where}),
                                      text_of(Text::request_made_by_key_holder));
    const std::string unsupported = unsupported_signature(request.algorithm());
    failure.exit = verdict_exit(status);
    failure.why =
        unsupported.empty() ? text_of(Text::signature_not_good, {failure.why}) : unsupported;
    throw failure;
}

Applicant read_applicant(QelContext *context, const Arguments &arguments, const std::string &path) {
    const Input input = read_request_input(path);
    Applicant applicant;
    applicant.requests = requests_of(context, input);
    if (applicant.requests.size() > 1)
        throw Failure{Exit::input, text_of(Text::cannot_issue_for, {display_name(path)}),
                      text_of(Text::several_requests), text_of(Text::one_by_one)};
    if (!applicant.requests.empty()) {
        const Request &request = applicant.requests.front();
        check_request(context, request);
        applicant.where = request.where;
        applicant.name = request.subject();
        applicant.key = request.key();
    } else {
        applicant.bare = std::move(public_keys_of(context, input, KeySource::key).front());
        applicant.where = applicant.bare.where;
        applicant.key = applicant.bare.key();
    }
    if (arguments.has("subject"))
        applicant.subject =
            read_name(context, arguments.value("subject"), text_of(Text::subjects_name));
    if (applicant.subject)
        applicant.name = applicant.subject.get();
    if (applicant.name == nullptr)
        arguments.misuse(text_of(Text::subject_needed_names_nobody, {applicant.where}));
    if (applicant.requests.empty())
        warn(text_of(Text::bare_key_shows_nothing, {applicant.where}));
    return applicant;
}

bool same_parts(const QelName *a, const QelName *b) {
    const auto x = name_values(a), y = name_values(b);
    return std::equal(x.begin(), x.end(), y.begin(), y.end(),
                      [](const auto &one, const auto &other) {
                          return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                                            [](const NameValue &v, const NameValue &w) {
                                                return v.type == w.type;
                                            });
                      });
}

std::unique_ptr<char, FreeBlock> printable_form(QelContext *context, const QelName *name,
                                                QelStatus &status) {
    char *text = nullptr;
    status = qel_dn2str(context, name, &text);
    return std::unique_ptr<char, FreeBlock>(text);
}

// Whether the printable form stands on one line and reads back as this name and no other.
bool is_unmistakable(QelContext *context, const QelName *name, const char *text) {
    QelName *again = nullptr;
    QelStatus status = qel_str2dn(context, text, &again);
    const Name owner(again);
    if (status != QEL_OK || !same_parts(name, again))
        return false;
    const auto second = printable_form(context, again, status);
    return status == QEL_OK && std::strcmp(text, second.get()) == 0 &&
           std::none_of(text, text + std::strlen(text),
                        [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7f; });
}

// Names are compared by their printable form everywhere, and stand in the log in that form.
void check_name(QelContext *context, const QelName *name, const std::string &whose) {
    const std::string what = text_of(Text::cannot_issue_name, {whose, name_text(name)});
    const std::string next = text_of(Text::give_subject);
    QelStatus status = QEL_OK;
    const auto text = printable_form(context, name, status);
    if (status != QEL_OK)
        throw library_failure(status, what, next);
    const bool empty = *text == 0;
    if (empty || !is_unmistakable(context, name, text.get()))
        throw Failure{Exit::input, what,
                      empty ? text_of(Text::name_is_empty) : text_of(Text::name_is_ambiguous),
                      next};
}

// ---- What it says ------------------------------------------------------------------------------

// "2026-01-31" or "2026-01-31T12:00:00Z" in seconds since 1970.
int64_t moment_named(const Arguments &arguments, const std::string &text) {
    for (const char *form : {"%Y-%m-%dT%H:%M:%SZ", "%Y-%m-%d"}) {
        tm fields = {};
        const char *end = strptime(text.c_str(), form, &fields);
        if (end == nullptr || *end != 0)
            continue;
        const int month_day = fields.tm_mday;
        const int64_t moment = timegm(&fields);
        if (fields.tm_mday == month_day && moment >= first_moment && moment <= last_moment)
            return moment;
    }
    arguments.misuse(text_of(Text::not_before_takes, {in_quotes(text)}));
}

QelUTCTime utc_time(int64_t moment) {
    const auto clock = static_cast<time_t>(moment);
    tm fields = {};
    gmtime_r(&clock, &fields);
    const auto number = [](int field) { return static_cast<int16_t>(field); };
    // Two digits of the year are written; 69 and above read as 1969 and after.
    return {number(fields.tm_year),
            number(fields.tm_mon + 1),
            number(fields.tm_mday),
            number(fields.tm_hour),
            number(fields.tm_min),
            number(fields.tm_sec),
            0,
            0,
            1};
}

struct Period {
    QelUTCTime begin, end;
    QelValidity validity() { return {&begin, &end}; }
};

// From a minute ago, unless the option says when: a validity does not hold in its first second, and
// clocks differ.
Period period_of(const Arguments &arguments) {
    constexpr int64_t lead = 60;
    const int64_t begin = arguments.has("not-before")
                              ? moment_named(arguments, arguments.value("not-before"))
                              : int64_t{time(nullptr)} - lead;
    const auto days = static_cast<int64_t>(arguments.number("days", usual_days, 1, most_days));
    if (begin + days * day > last_moment)
        arguments.misuse(text_of(Text::would_end_after_2049));
    return {utc_time(begin), utc_time(begin + days * day)};
}

struct UsageBit {
    const char *name;
    unsigned bit;
};

// KeyUsage (X.509), the first bit is the top bit.
constexpr UsageBit usage_bits[] = {
    {"digitalSignature", 0}, {"nonRepudiation", 1}, {"keyEncipherment", 2}, {"dataEncipherment", 3},
    {"keyAgreement", 4},     {"keyCertSign", 5},    {"cRLSign", 6},
};

// The extensions that the command line asks for. Records point into it: it stays where it is.
class Extensions {
public:
    explicit Extensions(const Arguments &arguments) {
        const auto critical = static_cast<uint8_t>(arguments.has("critical") ? 1 : 0);
        if (arguments.has("ca"))
            add(basic_constraints_, critical, authority_);
        unsigned usage = 0, unused = 8;
        for (const std::string &name : arguments.values("key-usage"))
            for (const UsageBit &row : usage_bits)
                if (name == row.name) {
                    usage |= 0x80U >> row.bit;
                    unused = std::min(unused, 7 - row.bit);
                }
        usage_[2] = static_cast<uint8_t>(unused);
        usage_[3] = static_cast<uint8_t>(usage);
        if (usage != 0)
            add(key_usage_, critical, usage_);
        if (critical != 0 && count_ == 0)
            arguments.misuse(text_of(Text::critical_goes_with));
    }
    Extensions(const Extensions &) = delete;
    Extensions &operator=(const Extensions &) = delete;

    QelExtensions *list() { return count_ != 0 ? nodes_ : nullptr; }

private:
    template <std::size_t size> void add(QelOid &id, uint8_t critical, uint8_t (&value)[size]) {
        records_[count_] = {0, &id, critical, {size, value}};
        nodes_[count_] = {nullptr, &records_[count_]};
        if (count_ != 0)
            nodes_[count_ - 1].next = &nodes_[count_];
        ++count_;
    }

    uint32_t basic_constraints_arcs_[4] = {2, 5, 29, 19}, key_usage_arcs_[4] = {2, 5, 29, 15};
    QelOid basic_constraints_ = {4, basic_constraints_arcs_}, key_usage_ = {4, key_usage_arcs_};
    uint8_t authority_[5] = {0x30, 3, 0x01, 1, 0xff}; // SEQUENCE { cA TRUE }
    uint8_t usage_[4] = {0x03, 2, 0, 0};              // BIT STRING, without its zeros at the end
    QelExtension records_[2] = {};
    QelExtensions nodes_[2] = {};
    std::size_t count_ = 0;
};

// ---- Serial numbers and the log ----------------------------------------------------------------

// The content octets of a positive INTEGER.
Bytes positive(std::span<const uint8_t> number) {
    while (!number.empty() && number[0] == 0)
        number = number.subspan(1);
    Bytes octets(number.begin(), number.end());
    if (octets.empty() || (octets[0] & 0x80) != 0)
        octets.insert(octets.begin(), 0);
    return octets;
}

Bytes number_of_hex(const std::string &digits) {
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    if (__qel_hex_2_binary(digits.c_str(), &bytes, &length) != QEL_OK)
        return {};
    const LibraryBytes owner(bytes);
    return positive({bytes, length});
}

// What an authority has issued: text, one entry for each certificate. Nobody else appends while it is
// open.
class Log {
public:
    explicit Log(const std::string &path) : path_(path), lock_(path, O_RDWR | O_APPEND | O_CREAT) {
        struct stat about;
        if (!lock_.locked() || fstat(lock_.descriptor(), &about) != 0)
            throw system_failure(Exit::output, text_of(Text::cannot_lock_log, {display_name(path)}),
                                 errno);
        if (!S_ISREG(about.st_mode))
            throw Failure{Exit::output, text_of(Text::cannot_use_log, {display_name(path)}),
                          text_of(Text::is_no_file), text_of(Text::name_log_file)};
        size_ = about.st_size;
        read();
    }

    bool has(const Bytes &serial) const {
        return std::find(serials_.begin(), serials_.end(), serial) != serials_.end();
    }

    // All of the entry, on the disk, or nothing.
    void append(const std::string &entry) {
        const std::string text = (ends_in_line_ ? "" : "\n") + entry;
        std::string_view rest = text;
        while (!rest.empty()) {
            const ssize_t count = write(lock_.descriptor(), rest.data(), rest.size());
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                lose();
            rest.remove_prefix(static_cast<std::size_t>(count));
        }
        if (fsync(lock_.descriptor()) != 0)
            lose();
    }

private:
    void read() {
        constexpr std::string_view label = "SerialNumber: 0x";
        if (size_ == 0)
            return;
        const Bytes contents = read_whole(path_);
        const std::string_view text(reinterpret_cast<const char *>(contents.data()),
                                    contents.size());
        ends_in_line_ = text.ends_with('\n');
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = std::min(text.find('\n', at), text.size());
            const std::string_view one = text.substr(at, end - at);
            if (one.starts_with(label))
                serials_.push_back(number_of_hex(std::string(one.substr(label.size()))));
            at = end + 1;
        }
    }

    [[noreturn]] void lose() {
        const int error = errno;
        // What was written is no entry.
        if (ftruncate(lock_.descriptor(), size_) != 0)
            warn(text_of(Text::log_ends_in_part, {display_name(path_)}));
        throw system_failure(Exit::output, text_of(Text::cannot_write_log, {display_name(path_)}),
                             error);
    }

    std::string path_;
    FileLock lock_;
    off_t size_ = 0;
    bool ends_in_line_ = true;
    std::vector<Bytes> serials_;
};

std::string log_path(const Arguments &arguments) {
    if (arguments.has("log"))
        return arguments.value("log");
    const std::string package = default_package_file();
    return package.substr(0, package.rfind('.')) + ".CERTLOG";
}

Bytes serial_for(const Arguments &arguments, const Log &log) {
    if (arguments.has("serial")) {
        Bytes serial = number_of_hex(arguments.value("serial"));
        if (serial.empty() || serial.size() > longest_serial)
            arguments.misuse(text_of(Text::serial_takes_20));
        if (log.has(serial))
            throw Failure{Exit::no, text_of(Text::cannot_issue_serial, {hex(serial)}),
                          text_of(Text::log_has_one), text_of(Text::another_serial),
                          QEL_ERR_ENTRY_EXISTS};
        return serial;
    }
    for (;;) {
        // Nobody can prepare a request for a number that nobody knows; positive, and no zero in front.
        Bytes serial = random_bytes(random_serial);
        serial[0] = static_cast<uint8_t>((serial[0] & 0x3f) | 0x40);
        if (!log.has(serial))
            return serial;
    }
}

// ---- Issuing -----------------------------------------------------------------------------------

// Who signs.
struct Issuer {
    const UsableKey &key;
    const QelName *name;
    const QelKeyInfo *public_key;
    bool self;
};

// Signs and encodes the certificate, and has the log know it.
Bytes sign_and_log(const Issuer &issuer, QelCert &cert, Log &log) {
    QelContext *context = *issuer.key.context;
    const PrivateKey &key = issuer.key.key;
    QelStatus status =
        __qel_sign_cert(context, &cert, key.algorithm, key.data(), key.size(), cert.algorithm);
    const LibraryBytes signature(cert.sigBits.value);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_sign_certificate, {issuer.key.where}));
    status = signature_status(context, cert, as_rsa_key(issuer.public_key));
    if (status != QEL_OK)
        throw Failure{Exit::input, text_of(Text::cannot_issue_with, {issuer.key.where}),
                      issuer.self ? text_of(Text::would_not_be_self_signed)
                                  : text_of(Text::not_authoritys_key),
                      issuer.self ? text_of(Text::give_authoritys_certificate)
                                  : text_of(Text::key_and_cert_together),
                      status};
    Bytes encoded = encode(context, &cert, QEL_PDU_Certificate, text_of(Text::the_certificate));
    log.append(cert_log_entry(context, cert));
    return encoded;
}

Certificate read_authority(QelContext *context, const std::string &path) {
    Certificate authority = std::move(read_certificates(context, path).front());
    if (const std::string state = validity_state(authority.record->validity); state != "valid")
        warn(text_of(Text::authoritys_certificate_is,
                     {authority.where, validity_words(authority.record->validity)}));
    return authority;
}

Json issue_json(const Arguments &arguments, QelContext *context, const QelCert &cert,
                const Bytes &encoded, const std::string &log) {
    const std::string output = arguments.value("output", "-");
    Json json = arguments.report();
    json["output"] = output == "-" ? Json(nullptr) : Json(utf8_or_latin1(output));
    json["log"] = utf8_or_latin1(log);
    json["version"] = cert.version + 1;
    json["serial"] = hex({cert.serial.value, cert.serial.length});
    json["issuer"] = name_text(cert.issuer, Charset::utf8);
    json["subject"] = name_text(cert.subject, Charset::utf8);
    json["not_before"] = time_text(cert.validity->notBefore);
    json["not_after"] = time_text(cert.validity->notAfter);
    json["md5_fingerprint"] = fingerprint(context, encoded, algorithm_named("md5"));
    if (output == "-")
        json["hex"] = hex(encoded);
    return json;
}

std::string issue_text(const std::string &output, const QelCert &cert, const std::string &log) {
    return display_name(output) + ":\n" + line("Subject", name_text(cert.subject)) +
           line("Issuer", name_text(cert.issuer)) +
           line("Serial", hex({cert.serial.value, cert.serial.length})) +
           line("Validity",
                time_text(cert.validity->notBefore) + " to " + time_text(cert.validity->notAfter)) +
           line("Log", in_quotes(log));
}

// Everything from the command line is right; the applicant and the issuer are known.
Exit issue(const Arguments &arguments, const Applicant &applicant, const Issuer &issuer,
           Period &period, Extensions &extensions) {
    QelContext *context = *issuer.key.context;
    check_name(context, applicant.name, text_of(Text::subjects_name));
    check_name(context, issuer.name, text_of(Text::issuers_name));
    if (const std::string weakness = small_exponent_note(applicant.key); !weakness.empty())
        warn(applicant.where + ": " + weakness);

    QelValidity validity = period.validity();
    auto *algorithm =
        const_cast<QelAlgId *>(*algorithm_named(arguments.value("algorithm", "md5")).signature);
    QelCert cert = {};
    cert.version = extensions.list() != nullptr ? 2 : 0;
    cert.signature = algorithm;
    cert.issuer = const_cast<QelName *>(issuer.name);
    cert.validity = &validity;
    cert.subject = const_cast<QelName *>(applicant.name);
    cert.pubKeyInfo = const_cast<QelKeyInfo *>(applicant.key);
    cert.extensions = extensions.list();
    cert.algorithm = algorithm;

    const std::string output = arguments.value("output", "-"), log_file = log_path(arguments);
    const bool pem = arguments.value("form", "pem") == "pem";
    const bool to_json = arguments.json() && output == "-";
    Output file(output, {.force = arguments.has("force"), .fresh = true});
    Bytes serial, encoded;
    {
        Log log(log_file);
        serial = serial_for(arguments, log);
        cert.serial = {static_cast<uint16_t>(serial.size()), serial.data()};
        encoded = sign_and_log(issuer, cert, log);
    }
    if (!to_json) {
        file.write(pem ? armoured(encoded, certificate_label) : encoded);
        file.finish();
    }
    if (arguments.json())
        put_json(issue_json(arguments, context, cert, encoded, log_file));
    else if (output != "-")
        put(issue_text(output, cert, log_file));
    return Exit::yes;
}

} // namespace

Exit run_issue(const Arguments &arguments) {
    const bool self = arguments.has("self"), own_key = self && arguments.operands().empty();
    if (self == arguments.has("cert"))
        arguments.misuse(text_of(Text::cert_or_self));
    const std::string output = arguments.value("output", "-");
    arguments.check_output(output, arguments.value("form", "pem") == "der", false);
    refuse_existing(output, arguments.has("force"));
    const std::string path = own_key ? "" : arguments.operand_or_stdin();
    arguments.check_stdin_once(
        {path, arguments.value("key"), arguments.value("cert"), phrase_path(arguments, "passin")});
    Period period = period_of(arguments);
    Extensions extensions(arguments);

    const Context context;
    Applicant applicant;
    Certificate authority;
    if (!own_key)
        applicant = read_applicant(context, arguments, path);
    if (!self)
        authority = read_authority(context, arguments.value("cert"));
    UsableKey key = usable_key(arguments, USAGE_SIGN);
    if (!own_key) {
        const Issuer issuer = {key, self ? applicant.name : authority.record->subject,
                               self ? applicant.key : authority.record->pubKeyInfo, self};
        return issue(arguments, applicant, issuer, period, extensions);
    }
    const KeyOwner owner = key_owner(arguments, std::move(key));
    applicant.where = owner.key.where;
    applicant.name = owner.name();
    applicant.key = owner.public_key();
    return issue(arguments, applicant, {owner.key, owner.name(), owner.public_key(), self}, period,
                 extensions);
}

} // namespace tool
