// qel cert get, set, remove, list, chain
#include "armour.h"
#include "certificate_text.h"
#include "command.h"
#include "repository.h"
#include "text.h"
#include "texts.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {
namespace {

constexpr char certificate_directory[] = "/etc/qel/certs";

std::string operand(const Arguments &arguments) {
    return arguments.operands().empty() ? "" : arguments.operands().front();
}

std::vector<Certificate> stored_certificates(const Context &context, const Repository &repository) {
    QelCert *array = nullptr;
    int count = 0;
    const QelStatus status =
        __qel_get_cert(context, repository.selector, repository.name_or_null(), &array, &count);
    if (status != QEL_OK)
        throw store_failure(status, repository, text_of(Text::cannot_get_certificates));
    return certificates_from(context, array, count, repository.where);
}

Bytes armoured_all(const std::vector<Certificate> &certificates) {
    Bytes text;
    for (const Certificate &certificate : certificates) {
        const Bytes one = armoured(certificate.bytes, "CERTIFICATE");
        text.insert(text.end(), one.begin(), one.end());
    }
    return text;
}

void show_all(const Arguments &arguments, const Context &context,
              const std::vector<Certificate> &certificates) {
    Json json = arguments.report();
    json["certificates"] = Json::array();
    for (const Certificate &certificate : certificates)
        if (arguments.json())
            json["certificates"].push_back(
                certificate_json(context, certificate, arguments.has("full")));
        else
            put(certificate.where + ":\n" +
                (arguments.has("full") ? full_certificate_text(context, certificate)
                                       : certificate_text(context, certificate)));
    if (arguments.json())
        put_json(json);
}

void check_room(const Arguments &arguments, const std::string &output) {
    if (output == "-" && arguments.json())
        arguments.misuse(text_of(Text::no_room_for_certificates));
}

// The library takes a file of one certificate only: a second would make both unreadable.
void check_first(QelContext *context, const Certificate &certificate) {
    char *subject = nullptr;
    if (qel_dn2str(context, certificate.record->subject, &subject) != QEL_OK)
        return; // storing it will tell
    const LibraryBytes owner(reinterpret_cast<uint8_t *>(subject));
    QelCert *present = nullptr;
    int count = 0;
    const QelStatus status = __qel_get_cert(context, QEL_REPO_DEFAULT, subject, &present, &count);
    qel_free_cert_list(&present, count);
    if (status == QEL_OK || status == QEL_ERR_FILE_FORMAT)
        throw Failure{Exit::no,
                      text_of(Text::failed_in, {text_of(Text::cannot_store_certificate),
                                                text_of(Text::certificate_directory)}),
                      text_of(Text::subjects_file_is_there, {in_quotes(subject)}),
                      text_of(Text::remove_file_first), QEL_ERR_ENTRY_EXISTS};
}

// A file that goes holds certificates, and nothing that cannot be had again.
void check_file_to_lose(QelContext *context, const std::string &path) {
    std::vector<Failure> unreadable;
    const Input input = read_input(path);
    certificates_of(context, input, &unreadable);
    for (const Item &item : input.items)
        if (is_secret(context, item))
            throw Failure{Exit::output, text_of(Text::cannot_remove, {in_quotes(path)}),
                          text_of(Text::also_holds_key), text_of(Text::remove_yourself)};
}

// The certificate of a file that holds no other.
Certificate only_certificate(const Context &context, const std::string &path, Text what) {
    std::vector<Certificate> certificates = read_certificates(context, path);
    if (certificates.size() > 1)
        throw Failure{Exit::input, text_of(what),
                      text_of(Text::several_certificates,
                              {display_name(path), std::to_string(certificates.size())}),
                      text_of(Text::give_one_certificate)};
    return std::move(certificates.front());
}

// A file is made for its owner alone, but those of the certificate directory are for everybody.
void let_everybody_read(QelContext *context, const Certificate &certificate) {
    char *subject = nullptr;
    if (qel_dn2str(context, certificate.record->subject, &subject) != QEL_OK)
        return;
    const std::string path = certificate_directory + std::string("/") + subject;
    std::free(subject);
    const int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (file < 0 || fchmod(file, 0644) != 0)
        throw system_failure(Exit::output, text_of(Text::cannot_write, {in_quotes(path)}), errno);
    close(file);
}

} // namespace

Exit run_cert_get(const Arguments &arguments) {
    const Repository repository = certificates_to_read(arguments, operand(arguments));
    check_room(arguments, arguments.value("output"));
    const Context context;
    const std::vector<Certificate> certificates = stored_certificates(context, repository);
    if (arguments.has("output") || !arguments.json())
        write_file(arguments.value("output", "-"), armoured_all(certificates));
    if (arguments.json())
        show_all(arguments, context, certificates);
    return Exit::yes;
}

Exit run_cert_list(const Arguments &arguments) {
    const Repository repository = certificates_to_read(arguments, operand(arguments));
    const Context context;
    show_all(arguments, context, stored_certificates(context, repository));
    return Exit::yes;
}

Exit run_cert_set(const Arguments &arguments) {
    const std::string repo = arguments.value("repo", "naming");
    const std::string to = arguments.value("to");
    if (repo == "file" && to.empty())
        arguments.misuse(text_of(Text::name_file_with_to));
    Repository repository = repo == "file" ? file_to_write(arguments, to) : naming_entry(to);
    if (repo == "default" && !to.empty())
        arguments.misuse(text_of(Text::default_takes_no_to));
    const Context context;
    const Certificate certificate =
        only_certificate(context, arguments.operand_or_stdin(), Text::cannot_store_certificate);
    if (repo == "default") {
        repository = {QEL_REPO_DEFAULT, "", text_of(Text::certificate_directory), true};
        check_first(context, certificate);
    }
    const QelStatus status = __qel_set_cert(context, repository.selector, repository.name_or_null(),
                                            certificate.record.get());
    if (status != QEL_OK)
        throw change_failure(status, repository, text_of(Text::cannot_store_certificate));
    if (repo == "default")
        let_everybody_read(context, certificate);
    if (arguments.json()) {
        Json json = arguments.report();
        json["repository"] = repo;
        json["to"] = to.empty() ? Json(nullptr) : Json(utf8_or_latin1(to));
        json["subject"] = name_text(certificate.record->subject, Charset::utf8);
        put_json(json);
    } else
        put(text_of(Text::certificate_stored,
                    {name_text(certificate.record->subject), repository.where}) +
            "\n");
    return Exit::yes;
}

Exit run_cert_remove(const Arguments &arguments) {
    if (arguments.has("cert") == arguments.has("all"))
        arguments.misuse(text_of(Text::which_certificate));
    const bool in_file = arguments.value("repo") == "file";
    const Repository repository = in_file ? file_to_write(arguments, operand(arguments))
                                          : certificates_to_read(arguments, operand(arguments));
    const Context context;
    QelStatus status;
    if (arguments.has("all")) {
        if (in_file)
            check_file_to_lose(context, repository.name);
        status = __qel_remove_cert(context, repository.selector, repository.name.c_str(), nullptr,
                                   nullptr);
    } else {
        const Certificate certificate =
            only_certificate(context, arguments.value("cert"), Text::cannot_remove_certificate);
        status = __qel_remove_cert(context, repository.selector, repository.name.c_str(),
                                   certificate.record->issuer, &certificate.record->serial);
    }
    if (status != QEL_OK)
        throw change_failure(status, repository, text_of(Text::cannot_remove_certificate));
    if (arguments.json())
        put_json(arguments.report());
    else
        put(text_of(arguments.has("all") ? Text::certificates_removed : Text::certificate_removed,
                    {repository.where}) +
            "\n");
    return Exit::yes;
}

Exit run_cert_chain(const Arguments &arguments) {
    const std::vector<std::string> trusted = arguments.values("trusted");
    check_room(arguments, arguments.value("output"));
    const Context context;
    const Certificate certificate =
        std::move(read_certificates(context, arguments.operand_or_stdin()).front());
    const std::vector<const char *> names = name_list(trusted);
    QelCert *chain = nullptr;
    int count = 0;
    const QelStatus status =
        qel_get_cert_chain(context, certificate.record.get(),
                           trusted.empty() ? nullptr : names.data(), 0, &chain, &count);
    if (status != QEL_OK)
        throw library_failure(
            status, text_of(Text::cannot_build_chain, {name_text(certificate.record->subject)}),
            text_of(Text::chain_from_naming));
    const std::vector<Certificate> certificates =
        certificates_from(context, chain, count, text_of(Text::the_chain));
    if (arguments.has("output"))
        write_file(arguments.value("output"), armoured_all(certificates));
    if (!arguments.has("output") || arguments.json())
        show_all(arguments, context, certificates);
    return Exit::yes;
}

} // namespace tool
