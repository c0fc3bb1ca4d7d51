#include "status.h"

#include "text.h"
#include "texts.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <iterator>
#include <strings.h>

namespace tool {
namespace {

constexpr ExitRow exits[] = {
    {Exit::yes, "yes, or done"},
    {Exit::no, "the answer is no: not verified, expired, not found"},
    {Exit::usage, "the command line is wrong"},
    {Exit::input, "the input is unreadable or malformed"},
    {Exit::no_key, "not logged in, or no such key"},
    {Exit::server, "the key server is out of reach"},
    {Exit::pass_phrase, "wrong pass phrase"},
    {Exit::output, "the output could not be written"},
    {Exit::naming, "the naming service is unavailable"},
    {Exit::permission, "not permitted"},
    {Exit::internal, "an internal failure"},
};

#define ROW(name) name, #name
constexpr StatusRow statuses[] = {
    {ROW(QEL_OK), Exit::yes, "The operation succeeded.", "Nothing."},
    {ROW(QEL_ERR_BUFFER_SIZE), Exit::internal, "A buffer given to the library is too small.",
     "In a program, let the library allocate: pass a null buffer."},
    {ROW(QEL_ERR_NO_MEMORY), Exit::internal, "An allocation failed.",
     "Raise the memory limit of the process, or give it less to do."},
    {ROW(QEL_ERR_FILE_FORMAT), Exit::input, "The file is not in the format that was expected.",
     "Check that it is the right file; 'qel asn1' shows what it holds."},
    {ROW(QEL_ERR_NO_FILE), Exit::input, "The file does not exist, or no name was given.",
     "Check the name."},
    {ROW(QEL_ERR_FILE_IO), Exit::input, "A file could not be read or written to its end.",
     "Check the disk, its free space, and the permissions of the file."},
    {ROW(QEL_ERR_BAD_PASSWORD), Exit::pass_phrase, "The pass phrase does not open the key.",
     "Try again with the right pass phrase."},
    {ROW(QEL_ERR_UNKNOWN_USER), Exit::no, "There is no such user on this host.",
     "Check the login name."},
    {ROW(QEL_ERR_UNSUPPORTED_ALG), Exit::input,
     "The algorithm is none that the library can use here.",
     "Use MD2 or MD5 as the digest, with or without RSA; DES-CBC, RC2-CBC or RC4 as the cipher."},
    {ROW(QEL_ERR_ASN1_ENCODE), Exit::internal, "A value cannot be encoded in ASN.1.",
     "Check the value for missing or impossible parts."},
    {ROW(QEL_ERR_ASN1_DECODE), Exit::input,
     "The bytes are not the ASN.1 value that was expected: cut, damaged, or of another type.",
     "Check that it is the right file, whole, and with nothing behind the value. 'qel asn1 --list' "
     "names the types that can be looked at."},
    {ROW(QEL_ERR_BAD_KEY), Exit::input, "The key is not well formed, or its parts do not fit.",
     "Get the key again from where it came."},
    {ROW(QEL_ERR_KEYGEN), Exit::internal, "A key could not be generated.",
     "Check the key size that was asked for, and the system's source of randomness."},
    {ROW(QEL_ERR_ENCRYPT), Exit::internal, "Encryption failed.",
     "Check the key and the parameters of the algorithm."},
    {ROW(QEL_ERR_DECRYPT), Exit::input, "Decryption failed: wrong key, or damaged data.",
     "Check that key and data belong together."},
    {ROW(QEL_ERR_SIGN), Exit::input, "The key cannot make this signature.",
     "Use an RSA key of at least 360 bits whose parts are consistent."},
    {ROW(QEL_ERR_VERIFY), Exit::no,
     "The signature does not belong to this data under this key, or is damaged.",
     "Check that data, signature, key and algorithm belong together."},
    {ROW(QEL_ERR_DIGEST), Exit::internal, "A message digest could not be computed.",
     "Begin the operation anew."},
    {ROW(QEL_ERR_OUTPUT), Exit::output, "A result could not be written.",
     "Check the disk and its free space."},
    {ROW(QEL_ERR_GENERAL), Exit::internal, "A lower layer failed without saying more.",
     "Where the key server is needed, check that it runs."},
    {ROW(QEL_ERR_UNSUPPORTED_ATTR), Exit::input,
     "A name holds an attribute type that has no keyword.",
     "Use the keywords CN, SERIAL, C, L, O, OU, ST, EM and STREET."},
    {ROW(QEL_ERR_LOGIN), Exit::no_key, "The key could not be registered with the key server.",
     "Check that the key server runs, and log in again."},
    {ROW(QEL_ERR_LOGOUT), Exit::no_key, "The key could not be withdrawn from the key server.",
     "Check that you are logged in."},
    {ROW(QEL_ERR_NO_ENTRY), Exit::no, "There is no such entry.", "Check the name."},
    {ROW(QEL_ERR_ENTRY_EXISTS), Exit::no, "There is an equal entry already.",
     "Delete the old entry first if it is to be replaced."},
    {ROW(QEL_ERR_SERV_DECRYPT), Exit::server, "The key server refused or failed to decrypt.",
     "Check that you are logged in with a key that may decrypt."},
    {ROW(QEL_ERR_SERV_SIGN), Exit::server, "The key server refused or failed to sign.",
     "Check that you are logged in with a key that may sign."},
    {ROW(QEL_ERR_NOT_LOGGED_IN), Exit::no_key, "The key server holds no key of this user.",
     "Log in with qellogin."},
    {ROW(QEL_ERR_SERV_CONNECT), Exit::server, "The key server cannot be reached.",
     "Check that rpcbind and qelserv run on this host."},
    {ROW(QEL_ERR_NO_KEYPKG), Exit::no_key, "There is no key package of that name.",
     "Check the user and the key identifier."},
    {ROW(QEL_ERR_KEY_EXPIRED), Exit::no,
     "The present moment is outside the validity. From a certificate's verification it also "
     "says that the signature is good.",
     "Get a current certificate, or accept this one with 'qel cert verify --allow-expired'."},
    {ROW(QEL_ERR_ISSUER_NOT_TRUSTED), Exit::no, "No issuer in the chain is a trusted key.",
     "Add the issuer's key to the trusted keys once you have checked it."},
    {ROW(QEL_ERR_BAD_PARAM), Exit::input, "An argument is missing, impossible or out of range.",
     "Check what was given. In a certificate that is the signature algorithm: only MD2 and MD5 "
     "with "
     "RSA are supported. In a name that is the lengths (C has 2 characters, CN, O and OU at most "
     "64, L, ST and STREET at most 128), and commas and plus signs that stand first."},
    {ROW(QEL_ERR_TO_RFC1421), Exit::internal, "Bytes could not be put into printable armour.",
     "Check the input."},
    {ROW(QEL_ERR_FROM_RFC1421), Exit::input,
     "The text between the marker lines is not base 64, or is cut.",
     "Get the text again; mail programs may have changed it."},
    {ROW(QEL_ERR_RANDOM), Exit::internal, "No random bytes could be had.",
     "Check the system's source of randomness."},
    {ROW(QEL_ERR_XFN), Exit::naming, "The naming service could not be read or written.",
     "Check that it is set up on this host."},
    {ROW(QEL_ERR_NO_CHAIN), Exit::no, "No chain of certificates leads to an allowed issuer.",
     "Supply the missing issuer certificates."},
    {ROW(QEL_ERR_DN_NO_EQUALS), Exit::input, "A component of the name has no equals sign.",
     "Write names as TYPE=VALUE, TYPE=VALUE; put a backslash before a comma inside a value."},
    {ROW(QEL_ERR_DN_NO_TYPE), Exit::input, "A component of the name begins with an equals sign.",
     "Put the attribute type before the equals sign, as in CN=Alice."},
    {ROW(QEL_ERR_DN_NO_VALUE), Exit::input, "A component of the name ends with its equals sign.",
     "Put the value after the equals sign, or leave the component out."},
    {ROW(QEL_ERR_NO_CERT), Exit::no, "There is no such certificate.",
     "Check the name of its owner."},
    {ROW(QEL_ERR_NO_DN), Exit::no, "There is no distinguished name for this user.",
     "Store the user's name first."},
    {ROW(QEL_ERR_CRITICAL_EXT), Exit::no,
     "The certificate has an extension marked critical, and the library understands none.",
     "'qel cert verify --signature-only' looks at the signature alone; judge the extensions "
     "yourself with 'qel cert show --full'."},
    {ROW(QEL_ERR_ASN1_INIT), Exit::internal, "The ASN.1 run-time system could not be set up.",
     "Reinstall the library."},
    {ROW(QEL_ERR_WRAP), Exit::internal, "A session key could not be wrapped.",
     "Check the recipient's public key."},
    {ROW(QEL_ERR_UNWRAP), Exit::input, "A session key could not be unwrapped.",
     "Check that the private key is the recipient's."},
    {ROW(QEL_ERR_KEY_TYPE), Exit::input, "The key is not an rsaEncryption key.",
     "Use an RSA key under 1.2.840.113549.1.1.1; 'qel verify' and 'qel cert verify "
     "--signature-only' also take one under 2.5.8.1.1."},
    {ROW(QEL_ERR_DH_PHASE1), Exit::input, "The first step of the key agreement failed.",
     "Check the Diffie-Hellman parameters."},
    {ROW(QEL_ERR_DH_PHASE2), Exit::input, "The second step of the key agreement failed.",
     "Check the other side's public value."},
    {ROW(QEL_ERR_DOUBLE_ENCRYPT), Exit::permission,
     "Data begin with the same 64 bytes as the output that encryption or decryption made last, "
     "which the export policy forbids to encrypt or decrypt in the same process.",
     "Encrypt the plain data; decrypt in another process."},
    {ROW(QEL_ERR_SERV_UPDATE), Exit::server, "The key server did not take the new key package.",
     "Check that you are logged in with the same key."},
    {ROW(QEL_ERR_SERV_STAT), Exit::server, "The key server did not tell about the key.",
     "Check that the key server runs and that you are logged in."},
    {ROW(QEL_ERR_EXPORT), Exit::permission, "The export policy forbids it: a key is too strong.",
     "RSA keys are made with at most 512 bits, and unwrap with at most 4096. RC2 and RC4 keys have "
     "at most 5 bytes and 40 effective bits; DES keys at most 0F in the bytes at positions 1, 3, 5 "
     "and 7; triple DES is not for data."},
    {ROW(QEL_ERR_TKEY_EXPIRED), Exit::no, "The trusted key that ends the chain has expired.",
     "Replace the trusted key."},
    {ROW(QEL_ERR_OPEN_FILE), Exit::input, "A file cannot be opened.",
     "Check its name and permissions."},
};
#undef ROW

static_assert(std::size(statuses) == QEL_ERR_OPEN_FILE + 1);

std::string_view without_prefix(std::string_view name) {
    for (const std::string_view prefix : {"QEL_ERR_", "QEL_"})
        if (name.size() > prefix.size() &&
            strncasecmp(name.data(), prefix.data(), prefix.size()) == 0)
            return name.substr(prefix.size());
    return name;
}

} // namespace

std::span<const ExitRow> exit_table() {
    return exits;
}

std::span<const StatusRow> status_table() {
    return statuses;
}

std::string meaning_of(const StatusRow &row) {
    return in_users_language(MessageSet::statuses, 1 + static_cast<int>(row.status), row.meaning);
}

std::string advice_of(const StatusRow &row) {
    return in_users_language(MessageSet::statuses, 101 + static_cast<int>(row.status), row.advice);
}

const StatusRow *find_status(QelStatus status) {
    return status < std::size(statuses) ? &statuses[status] : nullptr;
}

const StatusRow *find_status(std::string_view number_or_name) {
    const char *const end = number_or_name.data() + number_or_name.size();
    QelStatus number = 0;
    const auto read = std::from_chars(number_or_name.data(), end, number);
    if (read.ec == std::errc() && read.ptr == end)
        return find_status(number);
    const std::string_view wanted = without_prefix(number_or_name);
    for (const StatusRow &row : statuses) {
        const std::string_view name = without_prefix(row.name);
        if (name.size() == wanted.size() &&
            strncasecmp(name.data(), wanted.data(), name.size()) == 0)
            return &row;
    }
    return nullptr;
}

std::string status_words(QelStatus status) {
    const StatusRow *row = find_status(status);
    const std::string number = std::to_string(status), words = qel_strerror(nullptr, status);
    return row != nullptr ? text_of(Text::status, {number, row->name, words})
                          : text_of(Text::status_without_name, {number, words});
}

Exit verdict_exit(QelStatus status) {
    switch (status) {
    case QEL_ERR_UNSUPPORTED_ALG:
    case QEL_ERR_BAD_KEY:
    case QEL_ERR_BAD_PARAM:
    case QEL_ERR_KEY_TYPE:
        return Exit::no;
    default:
        return status < std::size(statuses) ? statuses[status].exit : Exit::internal;
    }
}

Failure library_failure(QelStatus status, std::string what, std::string next) {
    const StatusRow *row = find_status(status);
    if (next.empty() && row != nullptr)
        next = advice_of(*row);
    return {row != nullptr ? row->exit : Exit::internal, std::move(what), status_words(status),
            std::move(next), status};
}

Failure system_failure(Exit exit, std::string what, int error) {
    std::string next;
    switch (error) {
    case ENOENT:
        next = text_of(Text::check_name);
        break;
    case EACCES:
        next = text_of(Text::check_permissions);
        break;
    case EISDIR:
        next = text_of(Text::name_file_in_it);
        break;
    case ENOSPC:
        next = text_of(Text::make_room);
        break;
    case EFBIG:
        next = text_of(Text::raise_file_limit);
        break;
    case EBADF:
        next = text_of(Text::open_before);
        break;
    default:
        break;
    }
    return {exit, std::move(what), std::strerror(error), std::move(next)};
}

} // namespace tool
