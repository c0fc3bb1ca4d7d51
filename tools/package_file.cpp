// Files of key packages.
#include "armour.h"
#include "file_lock.h"
#include "key_package.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <cerrno>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {
namespace {

bool is_there(const std::string &path) {
    struct stat about;
    return stat(path.c_str(), &about) == 0;
}

// A secret file that replaces its older self.
constexpr FileOptions changed_in_place = {.secret = true, .force = true, .keep_owner = true};

std::string_view view(const Bytes &bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

} // namespace

std::string default_package_file() {
    std::vector<char> buffer(4096);
    passwd entry;
    passwd *found = nullptr;
    int error;
    while ((error = getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found)) == ERANGE)
        buffer.resize(buffer.size() * 2);
    if (found == nullptr)
        throw library_failure(QEL_ERR_UNKNOWN_USER,
                              text_of(Text::cannot_tell_own_file, {std::to_string(getuid())}),
                              text_of(Text::name_the_file_too));
    const std::string home = std::string(found->pw_dir) + "/";
    const std::string name = std::string(found->pw_name) + "." + package_label;
    return !is_there(home + name) && is_there(home + "." + name) ? home + "." + name : home + name;
}

// ---- Finding -----------------------------------------------------------------------------------

std::vector<StoredPackage> packages_of(QelContext *context, const Input &input) {
    std::vector<StoredPackage> packages;
    for (const Item &item : input.items) {
        QelStatus status = QEL_ERR_ASN1_DECODE;
        Decoded<QelKeyPkg> record;
        if (item.problem.empty())
            record = decode<QelKeyPkg>(context, item.bytes, QEL_PDU_KeyPkg, &status);
        if (record)
            packages.push_back({input.name_of(item), item.bytes, std::move(record)});
        else if (item.label == package_label)
            throw bad_item(input, item, text_of(Text::a_key_package), status);
    }
    return packages;
}

std::vector<StoredPackage> read_packages(QelContext *context, const std::string &path) {
    const Input input = read_input(path);
    std::vector<StoredPackage> packages = packages_of(context, input);
    if (packages.empty() && !input.armoured)
        throw bad_item(input, input.items.front(), text_of(Text::a_key_package),
                       QEL_ERR_ASN1_DECODE);
    if (packages.empty())
        throw Failure{
            Exit::input,
            text_of(Text::cannot_find_in, {text_of(Text::a_key_package), display_name(path)}),
            text_of(Text::holds_other_things), text_of(Text::list_blocks)};
    return packages;
}

StoredPackage read_package(QelContext *context, const Arguments &arguments,
                           const std::string &path) {
    return choose_package(arguments, display_name(path), read_packages(context, path));
}

StoredPackage choose_package(const Arguments &arguments, const std::string &where,
                             std::vector<StoredPackage> packages) {
    std::string ids;
    for (const StoredPackage &package : packages)
        ids += (ids.empty() ? "" : ", ") + in_quotes(package.record->keypkgId);
    if (!arguments.has("id")) {
        if (packages.size() > 1)
            arguments.misuse(text_of(Text::several_packages, {where, ids}));
        return std::move(packages.front());
    }
    const std::string id = arguments.value("id");
    for (StoredPackage &package : packages)
        if (id == package.record->keypkgId)
            return std::move(package);
    throw Failure{Exit::no_key, text_of(Text::no_package_in, {in_quotes(id), where}),
                  text_of(Text::holds, {ids}), text_of(Text::check_identifier), QEL_ERR_NO_KEYPKG};
}

// ---- Storing -----------------------------------------------------------------------------------

namespace {

// contents with package in the place of an item; what stands around a block stays.
Bytes with_item(const Bytes &contents, const Input &input, const Item &item,
                std::span<const uint8_t> package) {
    if (!input.armoured && !input.decoded)
        return {package.begin(), package.end()};
    const Bytes block = armoured(package, package_label);
    if (input.decoded)
        return block;
    const std::string_view text = view(contents);
    std::size_t begin = 0;
    for (std::size_t line = 1; line < item.line; ++line)
        begin = text.find('\n', begin) + 1;
    std::size_t end = text.find("\n-----END ", begin) + 1;
    end = std::min(text.find('\n', end), text.size() - 1) + 1;
    Bytes result(contents.begin(), contents.begin() + static_cast<std::ptrdiff_t>(begin));
    result.insert(result.end(), block.begin(), block.end());
    result.insert(result.end(), contents.begin() + static_cast<std::ptrdiff_t>(end),
                  contents.end());
    return result;
}

Bytes with_package_added(const Arguments &arguments, const std::string &path,
                         std::span<const uint8_t> package, const std::string &id) {
    const Context context;
    const std::vector<StoredPackage> packages = read_packages(context, path);
    const Bytes contents = read_whole(path);
    const Input input = parse_input(path, contents);
    for (const StoredPackage &present : packages) {
        if (id != present.record->keypkgId)
            continue;
        if (!arguments.has("force"))
            throw Failure{Exit::output, text_of(Text::cannot_add_to, {display_name(path)}),
                          text_of(Text::holds_package_already, {in_quotes(id)}),
                          text_of(Text::id_or_force), QEL_ERR_ENTRY_EXISTS};
        for (const Item &item : input.items)
            if (item.bytes == present.bytes)
                return with_item(contents, input, item, package);
    }
    Bytes result = input.armoured ? contents : armoured(packages.front().bytes, package_label);
    if (result.back() != '\n')
        result.push_back('\n');
    const Bytes block = armoured(package, package_label);
    result.insert(result.end(), block.begin(), block.end());
    return result;
}

} // namespace

void check_place(const Arguments &arguments, const std::string &path) {
    arguments.check_output(path, false, true);
    const auto options = arguments.command().options;
    const bool knows_add = std::any_of(options.begin(), options.end(), [](const Option &option) {
        return std::string_view(option.name) == "add";
    });
    if (path != "-" && !arguments.has("force") && !arguments.has("add") && is_there(path))
        throw Failure{Exit::output, text_of(Text::cannot_write, {display_name(path)}),
                      text_of(Text::exists),
                      text_of(knows_add ? Text::output_add_or_force : Text::output_or_force)};
}

void store_package(const Arguments &arguments, const std::string &path,
                   std::span<const uint8_t> package, const std::string &id) {
    const bool force = arguments.has("force");
    if (path == "-" || !arguments.has("add") || !is_there(path))
        return write_file(path, armoured(package, package_label), {true, force});
    const FileLock lock(path);
    write_file(path, with_package_added(arguments, path, package, id), changed_in_place);
}

void replace_package(const std::string &path, std::span<const uint8_t> old_package,
                     std::span<const uint8_t> package) {
    const FileLock lock(path);
    const Bytes contents = read_whole(path);
    const Input input = parse_input(path, contents);
    for (const Item &item : input.items)
        if (std::equal(item.bytes.begin(), item.bytes.end(), old_package.begin(),
                       old_package.end()))
            return write_file(path, with_item(contents, input, item, package), changed_in_place);
    throw Failure{Exit::output, text_of(Text::cannot_write, {display_name(path)}),
                  text_of(Text::changed_meanwhile), text_of(Text::begin_again)};
}

} // namespace tool
