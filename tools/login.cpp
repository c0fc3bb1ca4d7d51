// qel login, qel logout, qel lock, qel status
#include "command.h"
#include "key_package.h"
#include "key_server.h"
#include "repository.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <ctime>
#include <pwd.h>
#include <unistd.h>

namespace tool {
namespace {

struct Unit {
    char letter;
    uint32_t seconds;
    const char *name;
};
constexpr Unit units[] = {{'d', 86400, "d"}, {'h', 3600, "h"}, {'m', 60, "min"}, {'s', 1, "s"}};

// "90", "90s", "30m", "8h", "2d"; 0 where the option was left out.
uint32_t lifetime_of(const Arguments &arguments) {
    if (!arguments.has("lifetime"))
        return 0;
    const std::string text = arguments.value("lifetime");
    uint32_t number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    const std::string_view unit(read.ptr, text.data() + text.size());
    uint64_t seconds = unit.empty() ? number : 0;
    for (const Unit &row : units)
        if (unit.size() == 1 && unit[0] == row.letter)
            seconds = uint64_t{number} * row.seconds;
    if (read.ec != std::errc() || seconds == 0 || seconds > INT32_MAX)
        arguments.misuse(text_of(Text::lifetime_takes, {in_quotes(text)}));
    return static_cast<uint32_t>(seconds);
}

// "7 h 59 min": the two largest units that are not zero.
std::string duration_text(uint32_t seconds) {
    std::string text;
    int shown = 0;
    for (const Unit &row : units) {
        const uint32_t count = seconds / row.seconds;
        seconds %= row.seconds;
        if ((count == 0 && shown == 0) || shown == 2)
            continue;
        ++shown;
        if (count != 0)
            text += (text.empty() ? "" : " ") + std::to_string(count) + " " + row.name;
    }
    return text;
}

std::string utc(int64_t time) {
    const time_t seconds = static_cast<time_t>(time);
    tm parts = {};
    char text[32] = "";
    gmtime_r(&seconds, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string user_name(uid_t uid) {
    const passwd *user = getpwuid(uid);
    return user != nullptr ? user->pw_name : std::to_string(uid);
}

// The user of --user, else the caller.
uid_t user_of(const Arguments &arguments) {
    if (!arguments.has("user"))
        return geteuid();
    const std::string name = arguments.value("user");
    const passwd *user = getpwnam(name.c_str());
    if (user == nullptr)
        throw library_failure(QEL_ERR_UNKNOWN_USER,
                              text_of(Text::cannot_find_user, {in_quotes(name)}));
    return user->pw_uid;
}

std::string host_of(const Arguments &arguments) {
    const std::string host = arguments.value("host", default_host);
    in_addr address;
    if (inet_pton(AF_INET, host.c_str(), &address) != 1)
        arguments.misuse(text_of(Text::host_takes, {in_quotes(host)}));
    return host;
}

std::string entry_text(const KeyEntry &entry) {
    std::string text = text_of(Text::entry_usage, {in_quotes(entry.id), usage_text(entry.usage)});
    if (entry.locked)
        text += text_of(Text::entry_locked);
    if (entry.seconds_left != 0)
        text += text_of(Text::entry_left, {duration_text(entry.seconds_left)});
    if (entry.host != default_host)
        text += text_of(Text::entry_host, {printable(entry.host)});
    return text;
}

Json entry_json(const KeyEntry &entry) {
    Json json;
    json["id"] = utf8_or_latin1(entry.id);
    json["user"] = utf8_or_latin1(user_name(entry.uid));
    json["uid"] = entry.uid;
    json["host"] = utf8_or_latin1(entry.host);
    json["usage"] = usage_text(entry.usage);
    json["locked"] = entry.locked;
    json["seconds_left"] = entry.seconds_left != 0 ? Json(entry.seconds_left) : Json(nullptr);
    json["registered"] = utc(entry.registered);
    return json;
}

const KeyEntry *find_entry(const std::vector<KeyEntry> &entries, const KeyEntry &like) {
    for (const KeyEntry &entry : entries)
        if (entry.id == like.id && entry.host == like.host)
            return &entry;
    return nullptr;
}

uint32_t usage_for(const Arguments &arguments, const QelKeyPkg &package) {
    const uint32_t asked =
        arguments.has("usage") ? usage_named(arguments.value("usage")) : package.usage;
    if (package.usage != USAGE_SIGN_ENCRYPT && asked != package.usage)
        throw Failure{Exit::permission,
                      text_of(Text::cannot_log_in_with_package, {in_quotes(package.keypkgId)}),
                      text_of(Text::usage_is, {usage_text(package.usage), usage_text(asked)}),
                      text_of(Text::leave_usage_out)};
    return asked;
}

// What the key server takes has a bound; a key of about 1600 bits reaches it.
void check_size(std::size_t size, const std::string &id) {
    if (size > QELSERV_MAX_PRIVKEY)
        throw Failure{Exit::input, text_of(Text::cannot_log_in_with_package, {in_quotes(id)}),
                      text_of(Text::key_too_long, {std::to_string(QELSERV_MAX_PRIVKEY)}),
                      text_of(Text::use_short_key)};
}

// Where the package is that one logs in with: the file that is named; else your own file, or where
// there is none, your entry in the naming service.
Repository login_repository(const Arguments &arguments) {
    const std::string repo = arguments.value("repo");
    if (!arguments.operands().empty() && !repo.empty())
        arguments.misuse(text_of(Text::repo_and_file));
    const std::string path =
        arguments.operands().empty() ? default_package_file() : arguments.operands().front();
    const bool file_there = access(path.c_str(), F_OK) == 0 || errno != ENOENT;
    if (repo == "naming" || (repo.empty() && arguments.operands().empty() && !file_there))
        return naming_entry("");
    return {QEL_REPO_FILE, path, display_name(path)};
}

StoredPackage login_package(const Context &context, const Arguments &arguments,
                            const Repository &repository) {
    if (repository.selector == QEL_REPO_FILE)
        return read_package(context, arguments, repository.name);
    try {
        return choose_package(arguments, repository.where, stored_packages(context, repository));
    } catch (Failure &failure) {
        if (!arguments.has("repo") &&
            (failure.status == QEL_ERR_NO_KEYPKG || failure.status == QEL_ERR_UNKNOWN_USER ||
             failure.status == QEL_ERR_XFN))
            failure.next = text_of(Text::no_own_file_either, {in_quotes(default_package_file())});
        throw;
    }
}

} // namespace

Exit run_login(const Arguments &arguments) {
    const Repository repository = login_repository(arguments);
    arguments.check_stdin_once(
        {repository.selector == QEL_REPO_FILE ? repository.name : std::string(),
         phrase_path(arguments, "passin")});
    const PassPhraseSource source(arguments, "passin", QEL_PHRASE_OWN);
    KeyEntry wanted;
    wanted.uid = geteuid();
    wanted.host = host_of(arguments);
    wanted.seconds_left = lifetime_of(arguments);

    const Context context;
    const StoredPackage package = login_package(context, arguments, repository);
    wanted.id = package.record->keypkgId;
    wanted.usage = usage_for(arguments, *package.record);
    constexpr std::size_t longest_padding = 8;
    const std::size_t encrypted = package.record->encrPrivKeyInfo->encryptedData.length;
    check_size(encrypted - std::min(encrypted, longest_padding), wanted.id);

    const KeyServer server;
    const std::vector<KeyEntry> present = server.entries(wanted.uid);
    const KeyEntry *same = find_entry(present, wanted);
    if (same != nullptr && !same->locked)
        throw Failure{Exit::no, text_of(Text::cannot_log_in_with_key, {in_quotes(wanted.id)}),
                      text_of(Text::logged_in_already), text_of(Text::log_out_first),
                      QEL_ERR_ENTRY_EXISTS};
    {
        const UnlockedPackage unlocked = unlock(context, arguments, package, source);
        check_size(unlocked.private_key.size(), wanted.id);
        server.log_in(wanted, unlocked.private_key, package.bytes);
    }
    const std::vector<KeyEntry> entries = server.entries(wanted.uid);
    const KeyEntry *entry = find_entry(entries, wanted);
    const KeyEntry &made = entry != nullptr ? *entry : wanted;
    if (arguments.json()) {
        Json json = arguments.report();
        const bool file = repository.selector == QEL_REPO_FILE;
        json["repository"] = file ? "file" : "naming";
        json["file"] = file ? Json(utf8_or_latin1(repository.name)) : Json(nullptr);
        json["unlocked"] = same != nullptr;
        json["entry"] = entry_json(made);
        put_json(json);
    } else {
        put(text_of(same != nullptr ? Text::unlocked : Text::logged_in_with, {entry_text(made)}) +
            "\n");
    }
    return Exit::yes;
}

Exit run_logout(const Arguments &arguments) {
    if (arguments.has("all") && arguments.has("id"))
        arguments.misuse(text_of(Text::does_not_go_with, {"id", "all"}));
    KeyEntry entry;
    entry.uid = user_of(arguments);
    const KeyServer server;
    if (!arguments.has("all"))
        entry = choose_entry(arguments, server.entries(entry.uid));
    server.log_out(entry, arguments.has("all") ? QELSERV_WITHDRAW_ALL : QELSERV_WITHDRAW);
    if (arguments.json()) {
        Json json = arguments.report();
        json["user"] = utf8_or_latin1(user_name(entry.uid));
        json["id"] = arguments.has("all") ? Json(nullptr) : Json(utf8_or_latin1(entry.id));
        put_json(json);
    } else {
        put((arguments.has("all") ? text_of(Text::logged_out)
                                  : text_of(Text::logged_out_with, {in_quotes(entry.id)})) +
            "\n");
    }
    return Exit::yes;
}

Exit run_lock(const Arguments &arguments) {
    KeyEntry entry;
    entry.uid = user_of(arguments);
    KeyServer().log_out(entry, QELSERV_LOCK);
    if (arguments.json()) {
        Json json = arguments.report();
        json["user"] = utf8_or_latin1(user_name(entry.uid));
        put_json(json);
    } else {
        put(text_of(Text::locked) + "\n");
    }
    return Exit::yes;
}

namespace {

void tell_status(const Arguments &arguments, const std::vector<KeyEntry> &entries) {
    if (entries.empty())
        put(text_of(Text::not_logged_in) + "\n");
    for (const KeyEntry &entry : entries)
        put((arguments.has("all") ? printable(user_name(entry.uid)) + " " : "") +
            text_of(Text::entry_since, {entry_text(entry), utc(entry.registered)}) + "\n");
}

} // namespace

Exit run_status(const Arguments &arguments) {
    if (arguments.has("all") && arguments.has("user"))
        arguments.misuse(text_of(Text::does_not_go_with, {"user", "all"}));
    Json json = arguments.report();
    json["reachable"] = false;
    json["logged_in"] = false;
    json["entries"] = Json::array();
    std::vector<KeyEntry> entries;
    try {
        const KeyServer server;
        entries = arguments.has("all") ? server.all_entries() : server.entries(user_of(arguments));
    } catch (const Failure &failure) {
        if (failure.exit != Exit::server || !arguments.json())
            throw;
        json["error"] = failure_json(failure);
        put_json(json);
        print_failure(arguments.command().name, failure);
        return failure.exit;
    }
    const bool usable = std::any_of(entries.begin(), entries.end(),
                                    [](const KeyEntry &entry) { return !entry.locked; });
    if (arguments.json()) {
        json["reachable"] = true;
        json["logged_in"] = usable;
        for (const KeyEntry &entry : entries)
            json["entries"].push_back(entry_json(entry));
        put_json(json);
    } else {
        tell_status(arguments, entries);
    }
    return usable ? Exit::yes : Exit::no_key;
}

} // namespace tool
