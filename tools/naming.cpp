// qel naming status, setup, who
#include "command.h"
#include "repository.h"
#include "text.h"
#include "texts.h"

#include <arpa/inet.h>
#include <climits>
#include <cstdlib>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <qel/qelp.h>
#include <xfn/xfn.h>

namespace tool {
namespace {

template <auto destroy> struct Destroy {
    template <class T> void operator()(T *object) const { destroy(object); }
};
using OwnedStatus = std::unique_ptr<FN_status_t, Destroy<fn_status_destroy>>;
using OwnedName = std::unique_ptr<FN_composite_name_t, Destroy<fn_composite_name_destroy>>;
using OwnedContext = std::unique_ptr<FN_ctx_t, Destroy<fn_ctx_handle_destroy>>;
using OwnedRef = std::unique_ptr<FN_ref_t, Destroy<fn_ref_destroy>>;
using OwnedAttribute = std::unique_ptr<FN_attribute_t, Destroy<fn_attribute_destroy>>;
using OwnedString = std::unique_ptr<FN_string_t, Destroy<fn_string_destroy>>;

template <class T> T checked(T object) {
    if (!object)
        throw std::bad_alloc();
    return object;
}

std::string description(const FN_status_t *status) {
    const OwnedString text(checked(fn_status_description(status, 0, nullptr)));
    return reinterpret_cast<const char *>(fn_string_str(text.get(), nullptr));
}

OwnedName name_of(const std::string &text) {
    return OwnedName(
        checked(fn_composite_name_from_str(reinterpret_cast<const unsigned char *>(text.c_str()))));
}

// Whose entry it is, by the same rules as everywhere in the library.
struct Holder {
    const char *kind; // "user", "host" or "name", a global one
    std::string name; // as it was given
    std::string key;  // what it is called in the context of its kind
};

// "mars" of "mars.example.org".
Holder host_of_name(const std::string &name) {
    return {"host", name, name.substr(0, name.find('.'))};
}

Holder holder_of(const std::string &name) {
    constexpr std::string_view user = "user/", host = "host/", global = ".../";
    if (name.starts_with(global))
        return {"name", name, name};
    if (name.starts_with(user))
        return {"user", name.substr(user.size()), name.substr(user.size())};
    if (name.starts_with(host))
        return host_of_name(name.substr(host.size()));
    const in_addr_t address = inet_addr(name.c_str());
    if (address == INADDR_NONE)
        return {"user", name, name};
    const hostent *found = gethostbyaddr(&address, sizeof address, AF_INET);
    if (found == nullptr)
        throw Failure{Exit::no, text_of(Text::cannot_look_up, {in_quotes(name)}),
                      text_of(Text::no_host_of_address, {in_quotes(name)}),
                      text_of(Text::see_getent, {escaped(name)}), QEL_ERR_UNKNOWN_USER};
    Holder holder = host_of_name(found->h_name);
    holder.name = name;
    return holder;
}

Holder this_host() {
    char name[HOST_NAME_MAX + 1] = "";
    gethostname(name, sizeof name - 1);
    return host_of_name(name);
}

// What the naming service holds of a user, a host or a global name.
struct Entry {
    bool there = false;
    std::string distinguished_name; // or empty
    unsigned certificates = 0, packages = 0;
};

// What a host has whose naming service was set up; the library looks for the same.
constexpr char presence_file[] = "/var/fn/dsv_org.ctx.dir";

// The naming service of this host as it is: unlike the library's, these look-ups never set it up.
class NamingService {
public:
    NamingService() : status_(checked(fn_status_create())) {
        if (!set_up_)
            return;
        initial_.reset(fn_ctx_handle_from_initial_with_ns(FN_NS_FILES, 1, status_.get()));
        if (initial_)
            users_ = below("user");
        if (users_)
            hosts_ = below("host");
        if (hosts_)
            available_ = answers();
    }
    bool available() const { return available_; }
    std::string problem() const {
        return set_up_ ? description(status_.get()) : text_of(Text::never_set_up);
    }
    Failure failure() const {
        const Text set_up = geteuid() == 0 ? Text::naming_setup : Text::super_user_naming_setup;
        return {Exit::naming, text_of(Text::naming_not_available), problem(),
                text_of(set_up_ ? Text::check_settings : set_up), QEL_ERR_XFN};
    }

    Entry entry(const Holder &holder) {
        const std::string_view kind = holder.kind;
        FN_ctx_t *const context = kind == "user"   ? users_.get()
                                  : kind == "host" ? hosts_.get()
                                                   : initial_.get();
        Entry entry;
        const OwnedName name = name_of(holder.key);
        const OwnedRef found(fn_ctx_lookup(context, name.get(), status_.get()));
        if (holder.key.empty() || !found)
            return entry;
        entry.there = true;
        entry.certificates = values(context, *name, "onc_certificates");
        entry.packages = values(context, *name, "onc_key_packages");
        values(context, *name, "onc_distinguished_name", &entry.distinguished_name);
        return entry;
    }

private:
    // The contexts are there before their store is asked for the first time.
    bool answers() {
        const OwnedName name = name_of("root");
        const OwnedRef found(fn_ctx_lookup(users_.get(), name.get(), status_.get()));
        return found || fn_status_code(status_.get()) == FN_E_NAME_NOT_FOUND;
    }
    OwnedContext below(const char *context) {
        const OwnedName name = name_of(context);
        const OwnedRef reference(fn_ctx_lookup(initial_.get(), name.get(), status_.get()));
        return OwnedContext(reference ? fn_ctx_handle_from_ref(reference.get(), 1, status_.get())
                                      : nullptr);
    }

    unsigned values(FN_ctx_t *context, const FN_composite_name_t &name, std::string identifier,
                    std::string *first = nullptr) {
        const FN_identifier_t id = {FN_ID_STRING, identifier.size(), identifier.data()};
        const OwnedAttribute attribute(fn_attr_get(context, &name, &id, 1, status_.get()));
        if (!attribute)
            return 0;
        void *position = nullptr;
        const FN_attrvalue_t *value = fn_attribute_first(attribute.get(), &position);
        if (first != nullptr && value != nullptr && value->length != 0)
            first->assign(static_cast<const char *>(value->contents), value->length);
        return fn_attribute_valuecount(attribute.get());
    }

    bool set_up_ = access(presence_file, F_OK) == 0;
    OwnedStatus status_;
    OwnedContext initial_, users_, hosts_;
    bool available_ = false;
};

std::string count_text(unsigned count, Text one, Text several) {
    return count == 1 ? text_of(one) : text_of(several, {std::to_string(count)});
}

std::string entry_text(const Holder &holder, const Entry &entry) {
    const std::string name = in_quotes(holder.name);
    const std::string who =
        std::string_view(holder.kind) == "host" ? text_of(Text::host_named, {name}) : name;
    if (!entry.there)
        return text_of(Text::no_entry, {who}) + "\n";
    return text_of(Text::entry_holds,
                   {who,
                    entry.distinguished_name.empty() ? text_of(Text::no_distinguished_name)
                                                     : printable(entry.distinguished_name),
                    count_text(entry.certificates, Text::one_certificate, Text::certificates),
                    count_text(entry.packages, Text::one_package, Text::packages)}) +
           "\n";
}

void add_entry(Json &json, const Holder &holder, const Entry &entry) {
    json[holder.kind] = utf8_or_latin1(holder.name);
    json["entry"] = entry.there;
    json["distinguished_name"] = entry.distinguished_name.empty()
                                     ? Json(nullptr)
                                     : Json(utf8_or_latin1(entry.distinguished_name));
    json["certificates"] = entry.certificates;
    json["key_packages"] = entry.packages;
}

} // namespace

std::optional<Failure> naming_failure() {
    const NamingService service;
    return service.available() ? std::nullopt : std::optional(service.failure());
}

Exit run_naming_status(const Arguments &arguments) {
    const bool given = !arguments.operands().empty();
    const Holder holder =
        given ? holder_of(arguments.operands().front()) : Holder{"user", own_login(), own_login()};
    const Holder host = this_host();
    NamingService service;
    if (!service.available() && !arguments.json())
        throw service.failure();
    const auto entry_of = [&](const Holder &whose) {
        return service.available() ? service.entry(whose) : Entry();
    };
    const Entry entry = entry_of(holder);
    if (arguments.json()) {
        Json json = arguments.report();
        json["available"] = service.available();
        json["problem"] = service.available() ? Json(nullptr) : Json(service.problem());
        add_entry(json, holder, entry);
        if (!given)
            add_entry(json["this_host"], host, entry_of(host));
        put_json(json);
        if (!service.available())
            print_failure(arguments.command().name, service.failure());
    } else {
        put(text_of(Text::naming_available) + "\n" + entry_text(holder, entry) +
            (given ? "" : entry_text(host, entry_of(host))));
    }
    return !service.available() ? Exit::naming : entry.there ? Exit::yes : Exit::no;
}

Exit run_naming_setup(const Arguments &arguments) {
    bool available = NamingService().available();
    const bool was = available;
    if (!available && geteuid() != 0)
        throw Failure{Exit::permission, text_of(Text::cannot_set_up_naming),
                      text_of(Text::only_super_user), text_of(Text::ask_administrator),
                      QEL_ERR_XFN};
    if (!available) {
        // The library's first use does it.
        QelItemList *names = nullptr;
        uint32_t count = 0;
        __dsv_get_dn_name_given_user_name(own_login().c_str(), &names, &count);
        __qel_free_item_list(&names);
        const NamingService now;
        if (!now.available())
            throw now.failure();
    }
    if (arguments.json()) {
        Json json = arguments.report();
        json["available"] = true;
        json["changed"] = !was;
        put_json(json);
    } else {
        put(text_of(was ? Text::naming_set_up_already : Text::naming_is_set_up) + "\n");
    }
    return Exit::yes;
}

Exit run_naming_who(const Arguments &arguments) {
    const std::string given = arguments.operands().front();
    const Context context;
    char *normal = nullptr;
    QelStatus status = __qel_normalize_DN(context, given.c_str(), 1, &normal);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_read_name, {in_quotes(given)}));
    const std::string name = normal;
    std::free(normal);
    if (const auto failure = naming_failure())
        throw *failure;
    char *found = nullptr;
    status = __dsv_get_user_name_given_cn_name(name.c_str(), &found);
    if (status == QEL_ERR_UNKNOWN_USER)
        throw Failure{Exit::no, text_of(Text::nobody_is, {in_quotes(name)}), "", "", status};
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_look_up, {in_quotes(name)}));
    const std::string user = found;
    std::free(found);
    if (arguments.json()) {
        Json json = arguments.report();
        json["distinguished_name"] = utf8_or_latin1(name);
        json["name"] = utf8_or_latin1(user);
        put_json(json);
    } else {
        put(printable(user) + "\n");
    }
    return Exit::yes;
}

} // namespace tool
