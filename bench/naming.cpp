// What the naming service does in a second, beside OpenLDAP's slapd on the same work, with 100 to
// 100,000 users who have a distinguished name and two certificates each. See compare_naming.
//
// Every operation is one round of its client: look-ups as any user makes them, changes as root makes
// them. slapd keeps the same octets: the distinguished name as an indexed description, certificates
// as values of userPassword, the attribute of octets that it compares.
#include <benchmark/benchmark.h>

#define LDAP_DEPRECATED 0
#include <ldap.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <xfn/xfn.h>

namespace {

constexpr std::size_t certificate_size = 600;
constexpr int64_t counts[] = {100, 1000, 10'000, 100'000};

[[noreturn]] void die(const std::string &what) {
    std::fprintf(stderr, "naming: %s\n", what.c_str());
    std::exit(1);
}

// ---- The users ---------------------------------------------------------------------------------

std::string login_of(int64_t user) {
    return "u" + std::to_string(user);
}

std::string dn_of(int64_t user) {
    return "CN=USER " + std::to_string(user) + ", OU=PEOPLE, O=ACME, C=US";
}

// Octets that no two certificates share.
std::string certificate_of(int64_t user, int which) {
    std::mt19937_64 source(static_cast<uint64_t>(user) * 8 + static_cast<uint64_t>(which));
    std::string bytes(certificate_size, 0);
    for (char &byte : bytes)
        byte = static_cast<char>(source());
    return bytes;
}

// Users in an order that no cache foresees.
class Draw {
public:
    explicit Draw(int64_t count) : users_(0, count - 1) {}
    int64_t operator()() { return users_(source_); }

private:
    std::mt19937_64 source_{12345};
    std::uniform_int_distribution<int64_t> users_;
};

// ---- Ours --------------------------------------------------------------------------------------

template <auto destroy> struct Destroy {
    template <class T> void operator()(T *object) const { destroy(object); }
};
using Status = std::unique_ptr<FN_status_t, Destroy<fn_status_destroy>>;
using Name = std::unique_ptr<FN_composite_name_t, Destroy<fn_composite_name_destroy>>;
using Attribute = std::unique_ptr<FN_attribute_t, Destroy<fn_attribute_destroy>>;
using Reference = std::unique_ptr<FN_ref_t, Destroy<fn_ref_destroy>>;
using Set = std::unique_ptr<FN_attrset_t, Destroy<fn_attrset_destroy>>;
using Search = std::unique_ptr<FN_searchlist_t, Destroy<prelim_fn_searchlist_destroy>>;
using String = std::unique_ptr<FN_string_t, Destroy<fn_string_destroy>>;

FN_identifier_t identifier(const char *text) {
    return {FN_ID_STRING, std::strlen(text), const_cast<char *>(text)};
}

class Naming {
public:
    Naming() : status_(fn_status_create()) {
        FN_ctx_t *initial = fn_ctx_handle_from_initial_with_ns(FN_NS_FILES, 1, status_.get());
        if (initial == nullptr)
            die("there is no naming service");
        const Reference users(fn_ctx_lookup(initial, name("user").get(), status_.get()));
        users_ = fn_ctx_handle_from_ref(users.get(), 1, status_.get());
        nothing_.reset(fn_composite_name_create());
    }

    void add_user(int64_t user) {
        const Name login = name(login_of(user));
        Reference(fn_ctx_create_subcontext(users_, login.get(), status_.get()));
        store(*login, FN_ATTR_OP_ADD, attribute("onc_distinguished_name", {dn_of(user)}));
        store(*login, FN_ATTR_OP_ADD,
              attribute("onc_certificates", {certificate_of(user, 0), certificate_of(user, 1)}));
    }

    void get(int64_t user) {
        const FN_identifier_t id = identifier("onc_certificates");
        const Attribute found(
            fn_attr_get(users_, name(login_of(user)).get(), &id, 1, status_.get()));
        if (!found || fn_attribute_valuecount(found.get()) != 2)
            die("a user's certificates are not there");
    }

    void find(int64_t user) {
        const Set wanted(fn_attrset_create()), none(fn_attrset_create());
        fn_attrset_add(wanted.get(), attribute("onc_distinguished_name", {dn_of(user)}).get(), 0);
        const Search search(prelim_fn_attr_search(users_, nothing_.get(), wanted.get(), 0,
                                                  none.get(), status_.get()));
        const String hit(prelim_fn_searchlist_next(search.get(), nullptr, nullptr, status_.get()));
        if (!hit)
            die("a distinguished name is not found");
    }

    void add_value(int64_t user) {
        store(*name(login_of(user)), FN_ATTR_OP_ADD_VALUES,
              attribute("onc_certificates", {certificate_of(user, 2)}));
    }
    void remove_value(int64_t user) {
        store(*name(login_of(user)), FN_ATTR_OP_REMOVE_VALUES,
              attribute("onc_certificates", {certificate_of(user, 2)}));
    }

private:
    static Name name(const std::string &text) {
        return Name(
            fn_composite_name_from_str(reinterpret_cast<const unsigned char *>(text.c_str())));
    }

    static Attribute attribute(const char *id, std::vector<std::string> values) {
        const FN_identifier_t name = identifier(id), syntax = identifier("fn_attr_syntax_binary");
        Attribute made(fn_attribute_create(&name, &syntax));
        for (std::string &value : values) {
            const FN_attrvalue_t bytes = {value.size(), value.data()};
            fn_attribute_add(made.get(), &bytes, 0);
        }
        return made;
    }

    void store(const FN_composite_name_t &login, unsigned operation, const Attribute &attribute) {
        if (fn_attr_modify(users_, &login, operation, attribute.get(), 1, status_.get()) == 0)
            die("the naming service refuses a change: " +
                std::to_string(fn_status_code(status_.get())));
    }

    Status status_;
    FN_ctx_t *users_ = nullptr;
    Name nothing_;
};

// ---- slapd -------------------------------------------------------------------------------------

class Directory {
public:
    Directory() {
        const char *url = std::getenv("SLAPD_URL");
        if (url == nullptr || ldap_initialize(&session_, url) != LDAP_SUCCESS)
            die("there is no slapd");
        const int version = LDAP_VERSION3;
        ldap_set_option(session_, LDAP_OPT_PROTOCOL_VERSION, &version);
        berval password = {6, const_cast<char *>("secret")};
        check(ldap_sasl_bind_s(session_, "cn=root,o=acme", LDAP_SASL_SIMPLE, &password, nullptr,
                               nullptr, nullptr),
              "bind");
        add("o=acme", {{"objectClass", {"organization"}}, {"o", {"acme"}}});
    }

    void add_user(int64_t user) {
        add(entry_of(user), {{"objectClass", {"inetOrgPerson"}},
                             {"uid", {login_of(user)}},
                             {"cn", {login_of(user)}},
                             {"sn", {login_of(user)}},
                             {"description", {dn_of(user)}},
                             {"userPassword", {certificate_of(user, 0), certificate_of(user, 1)}}});
    }

    void get(int64_t user) {
        const std::vector<std::string> values =
            search(entry_of(user), LDAP_SCOPE_BASE, "(objectClass=*)", "userPassword");
        if (values.size() != 2)
            die("a user's certificates are not there, in slapd");
    }

    void find(int64_t user) {
        if (search("o=acme", LDAP_SCOPE_ONELEVEL, "(description=" + dn_of(user) + ")", "uid")
                .size() != 1)
            die("a distinguished name is not found, in slapd");
    }

    void add_value(int64_t user) { modify(user, LDAP_MOD_ADD); }
    void remove_value(int64_t user) { modify(user, LDAP_MOD_DELETE); }

private:
    struct Values {
        const char *type;
        std::vector<std::string> values;
    };

    static void check(int result, const std::string &what) {
        if (result != LDAP_SUCCESS)
            die("slapd, " + what + ": " + ldap_err2string(result));
    }
    static std::string entry_of(int64_t user) { return "uid=" + login_of(user) + ",o=acme"; }

    // One modification with its values, which stay the caller's.
    struct Mod {
        Mod(int operation, const Values &values) {
            for (const std::string &value : values.values)
                bytes_.push_back({value.size(), const_cast<char *>(value.data())});
            for (berval &value : bytes_)
                pointers_.push_back(&value);
            pointers_.push_back(nullptr);
            mod.mod_op = operation | LDAP_MOD_BVALUES;
            mod.mod_type = const_cast<char *>(values.type);
            mod.mod_bvalues = pointers_.data();
        }
        LDAPMod mod = {};

    private:
        std::vector<berval> bytes_;
        std::vector<berval *> pointers_;
    };

    void add(const std::string &entry, const std::vector<Values> &attributes) {
        std::vector<std::unique_ptr<Mod>> mods;
        std::vector<LDAPMod *> list;
        for (const Values &values : attributes)
            list.push_back(&mods.emplace_back(std::make_unique<Mod>(0, values))->mod);
        list.push_back(nullptr);
        check(ldap_add_ext_s(session_, entry.c_str(), list.data(), nullptr, nullptr), "add");
    }

    void modify(int64_t user, int operation) {
        const Values values = {"userPassword", {certificate_of(user, 2)}};
        Mod mod(operation, values);
        LDAPMod *list[] = {&mod.mod, nullptr};
        check(ldap_modify_ext_s(session_, entry_of(user).c_str(), list, nullptr, nullptr),
              "modify");
    }

    std::vector<std::string> search(const std::string &base, int scope, const std::string &filter,
                                    const char *type) {
        char *types[] = {const_cast<char *>(type), nullptr};
        LDAPMessage *result = nullptr;
        check(ldap_search_ext_s(session_, base.c_str(), scope, filter.c_str(), types, 0, nullptr,
                                nullptr, nullptr, 0, &result),
              "search");
        std::vector<std::string> values;
        if (LDAPMessage *entry = ldap_first_entry(session_, result)) {
            berval **found = ldap_get_values_len(session_, entry, type);
            for (int i = 0; found != nullptr && found[i] != nullptr; ++i)
                values.emplace_back(found[i]->bv_val, found[i]->bv_len);
            ldap_value_free_len(found);
        }
        ldap_msgfree(result);
        return values;
    }

    LDAP *session_ = nullptr;
};

// ---- Rows --------------------------------------------------------------------------------------

// A store that has so many users; it grows from row to row.
template <class Store> Store &with_users(int64_t count) {
    static Store store;
    static int64_t present = 0;
    for (; present < count; ++present)
        store.add_user(present);
    return store;
}

template <class Store> void get_by_name(benchmark::State &state) {
    Store &store = with_users<Store>(state.range(0));
    Draw draw(state.range(0));
    for ([[maybe_unused]] auto _ : state)
        store.get(draw());
}

template <class Store> void find_by_dn(benchmark::State &state) {
    Store &store = with_users<Store>(state.range(0));
    Draw draw(state.range(0));
    for ([[maybe_unused]] auto _ : state)
        store.find(draw());
}

template <class Store> void add_and_remove(benchmark::State &state) {
    Store &store = with_users<Store>(state.range(0));
    Draw draw(state.range(0));
    for ([[maybe_unused]] auto _ : state) {
        const int64_t user = draw();
        store.add_value(user);
        store.remove_value(user);
    }
}

template <class Store> void register_rows(const std::string &name, int64_t count) {
    const struct {
        const char *work;
        void (*run)(benchmark::State &);
    } rows[] = {{"get", get_by_name<Store>},
                {"find", find_by_dn<Store>},
                {"add+remove", add_and_remove<Store>}};
    for (const auto &row : rows)
        benchmark::RegisterBenchmark((std::string(row.work) + "/" + name).c_str(), row.run)
            ->Arg(count)
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
}

} // namespace

int main(int argc, char **argv) {
    for (const int64_t count : counts) {
        register_rows<Naming>("xfn", count);
        if (std::getenv("SLAPD_URL") != nullptr)
            register_rows<Directory>("slapd", count);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
