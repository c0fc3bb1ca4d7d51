// Names that are awkward for stores, and the commands on real stores.
#include "qel/store_host.h"

#include <algorithm>
#include <set>

namespace {

using namespace stores;

std::set<std::string> files_below(const std::string &folder) {
    std::set<std::string> names;
    for (const auto &file : std::filesystem::recursive_directory_iterator(folder))
        names.insert(file.path().lexically_relative(folder));
    return names;
}

// Values that mean something to a shell, a query, a format, a path, or a name's own syntax.
const char *const awkward[] = {"x'; DROP TABLE entries; --",
                               "x\" OR 1=1",
                               "%s%n%x",
                               "%25%00",
                               "*",
                               "?",
                               "_%",
                               "[a-z]",
                               "a b",
                               "-rf",
                               "~",
                               "$(id)",
                               "`id`",
                               "a;b",
                               "a|b&c",
                               "<a>",
                               "#x",
                               "!",
                               ".",
                               "..",
                               "...",
                               "\\",
                               "a\\b",
                               "a'b",
                               "\xc3\xa4\xe2\x82\xac",
                               "\x7f",
                               "NULL",
                               ":",
                               "a:b",
                               "@",
                               "{}",
                               "(|(a=*))"};

// The entry of each name has what was put there, and is found under its subject; none has another's.
TEST_F(Store, AwkwardEntries) {
    std::vector<std::string> names;
    for (const std::string name : awkward)
        if (name != "\\") // quotes nothing, and so is no name
            names.push_back(name);
    names.push_back(std::string(300, 'n'));
    check_as(root, [&] {
        for (std::size_t i = 0; i < names.size(); ++i) {
            SCOPED_TRACE(names[i]);
            const std::string dn = "CN=ENTRY " + std::to_string(i);
            EXPECT_EQ(set_cert(2, names[i].c_str(), certificate(dn)), QEL_OK);
            char *found = nullptr;
            EXPECT_EQ(__dsv_get_user_name_given_cn_name(dn.c_str(), &found), QEL_OK);
            EXPECT_STREQ(found, names[i].c_str());
            std::free(found);
        }
    });
    check_as(alice, [&] {
        EXPECT_EQ(set_cert(2, "\\", certificate(subject)), QEL_ERR_UNKNOWN_USER);
        for (std::size_t i = 0; i < names.size(); ++i) {
            SCOPED_TRACE(names[i]);
            const std::string dn = "CN=ENTRY " + std::to_string(i);
            EXPECT_EQ(get_certs(2, dn.c_str(), {certificate(dn)}), QEL_OK);
            Values values;
            EXPECT_EQ(read_values(names[i].c_str(), &values), QEL_OK);
            EXPECT_EQ(values, Values{certificate(dn)});
        }
        EXPECT_EQ(get_certs(2, "CN=ENTRY *", {}), QEL_ERR_UNKNOWN_USER);
        EXPECT_EQ(get_certs(2, "CN=ENTRY _", {}), QEL_ERR_UNKNOWN_USER);
    });
}

// Subjects in the naming service and as names of files, which stay in the certificate directory.
TEST_F(Store, AwkwardSubjects) {
    std::vector<std::string> values;
    for (std::string value : awkward)
        if (value.find('"') == value.npos) { // which a printable name has no way to say
            if (const std::size_t at = value.find_first_of(",+"); at != value.npos)
                value.insert(at, 1, '\\');
            values.push_back(value);
        }
    values.insert(values.end(), {"a/b", "../../../etc/x", "/etc/x", "a\\,b", "a=b"});
    check_as(root, [&] {
        const auto before = files_below("/etc/qel");
        std::size_t expected = 0;
        for (const std::string &value : values) {
            const std::string name = "CN=" + value;
            SCOPED_TRACE(name);
            const Bytes named = certificate(name);
            const bool has_slash = value.find('/') != value.npos;
            const QelStatus status = has_slash ? QEL_ERR_BAD_PARAM : QEL_OK;
            expected += has_slash ? 0 : 1;
            EXPECT_EQ(set_cert(16, nullptr, named), status);
            EXPECT_EQ(get_certs(16, name.c_str(), {named}), status);
            EXPECT_EQ(set_cert(2, "carol", named), QEL_OK);
            EXPECT_EQ(get_certs(2, name.c_str(), {named}), QEL_OK);
            EXPECT_EQ(remove_cert(2, name.c_str()), QEL_OK);
            EXPECT_EQ(dsv_delete_cn_name("carol", nullptr, 0), QEL_OK);
        }
        EXPECT_EQ(files_below("/etc/qel").size(), before.size() + expected);
        EXPECT_NE(access("/etc/x", F_OK), 0);
        // A link of the name leads nowhere, whether there is something behind it or not.
        for (const char *behind : {"/etc/hosts", "/etc/new"}) {
            const std::string link = "/etc/qel/certs/CN=BOB, O=ACME, C=US";
            const std::string text = host::read_text(behind);
            ASSERT_EQ(symlink(behind, link.c_str()), 0);
            EXPECT_EQ(set_cert(16, nullptr, certificate(other_subject)), QEL_ERR_OPEN_FILE);
            EXPECT_EQ(host::read_text(behind), text);
            unlink(link.c_str());
        }
        EXPECT_NE(access("/etc/new", F_OK), 0);
    });
}

TEST_F(Store, AwkwardFiles) {
    const std::string in = folder.path("in");
    ASSERT_EQ(mkdir(in.c_str(), 0700), 0);
    ASSERT_EQ(chdir(in.c_str()), 0);
    std::vector<std::string> names(std::begin(awkward), std::end(awkward));
    names.insert(names.end(), {"-", "a\nb", "\x01", std::string(200, 'f')});
    for (const std::string &name : names) {
        if (name == "." || name == "..")
            continue;
        SCOPED_TRACE(name);
        EXPECT_EQ(set(1, name.c_str(), own), QEL_OK);
        EXPECT_EQ(files_below(in), std::set<std::string>{name});
        EXPECT_EQ(get(1, name.c_str(), own), QEL_OK);
        EXPECT_EQ(remove(1, name.c_str()), QEL_OK);
        EXPECT_EQ(set_cert(1, name.c_str(), cert), QEL_OK);
        EXPECT_EQ(get_certs(1, name.c_str(), {cert}), QEL_OK);
        EXPECT_EQ(remove_cert(1, name.c_str(), subject, 1), QEL_OK);
        EXPECT_EQ(files_below(in), std::set<std::string>());
    }
    ASSERT_EQ(chdir("/"), 0);
}

// ---- Commands

struct Line {
    const char *words; // "$x" is a file of the folder, "%me" alice's entry, "%alice" a subject
    int exit;
    const char *text; // of it, on one of the outputs
    uid_t uid = root;
    bool needs_users = false;
};

class Commands : public Store {
protected:
    std::vector<std::string> words_of(const Line &line) const {
        const std::pair<const char *, std::string> meanings[] = {
            {"%me", me}, {"%alice", subject}, {"%bob", other_subject}, {"$", folder.path("")}};
        std::vector<std::string> words = split(line.words);
        for (std::string &word : words)
            for (const auto &[sign, meaning] : meanings)
                if (const std::size_t at = word.find(sign); at != word.npos)
                    word.replace(at, std::strlen(sign), meaning);
        return words;
    }
    void expect_lines(const std::vector<Line> &lines) const {
        for (const Line &line : lines) {
            if (line.needs_users && !has_users())
                continue;
            SCOPED_TRACE(line.words);
            const Ran ran = qel_as(line.uid, words_of(line));
            EXPECT_EQ(ran.exit, line.exit) << testing::PrintToString(ran);
            EXPECT_TRUE(holds(ran.out + ran.err, line.text)) << testing::PrintToString(ran);
            if (!holds(line.words, "--json"))
                continue;
            EXPECT_TRUE(holds(ran.out + ran.err, "{")) << testing::PrintToString(ran);
            for (const std::string &output : {ran.out, ran.err})
                if (output.starts_with('{')) {
                    const Json json = Json::parse(output, nullptr, false);
                    EXPECT_TRUE(json.is_object() && json["schema"] == 1) << output;
                }
        }
    }
};

TEST_F(Commands, ServeRealStores) {
    Bytes forged = own;
    forged.back() ^= 1;
    file("p", armoured(own, QEL_ITEM_KEYPKG));
    file("other", armoured(package("other").encoding(), QEL_ITEM_KEYPKG));
    file("forged", armoured(forged, QEL_ITEM_KEYPKG));
    file("c", armoured(cert, QEL_ITEM_CERTIFICATE));
    file("c2", armoured(certificate(subject, 2), QEL_ITEM_CERTIFICATE));
    file("bob", armoured(certificate(other_subject), QEL_ITEM_CERTIFICATE));
    file("two", armoured(cert, QEL_ITEM_CERTIFICATE) + armoured(cert, QEL_ITEM_CERTIFICATE));
    phrase_file(alice);
    expect_lines({
        {"qel naming status nobody", 1, "no entry", alice},
        {"qel naming status --json nobody", 1, "\"entry\": false", alice},
        {"qel naming setup", 0, "already", alice},
        {"qel naming who %alice", 1, "nobody is registered", alice},
        {"qel naming who --json %alice", 1, "", alice},
        {"qel naming who", 2, "NAME is needed", alice},
        {"qel naming who Alice", 3, "Equals missing", alice},
        {"qel keypkg get --json -o $x nobody", 1, "UNKNOWN_USER", alice},
        {"qel keypkg set $forged", 1, "signature", alice},
        {"qel keypkg set $missing", 3, "missing", alice},
        {"qel keypkg set $c", 3, "", alice},
        {"qel keypkg set --repo default --to x $p", 2, "", alice},
        {"qel keypkg set --json $p", 0, "\"default_keyid\"", alice},
        {"qel keypkg set $p", 1, "already", alice},
        {"qel keypkg set --to %me $other", 8, "own user", bob, true},
        {"qel keypkg set --json --to %me $other", 8, "QEL_ERR_XFN", bob, true},
        {"qel keypkg remove %me", 8, "own user", bob, true},
        {"qel keypkg list %me", 0, "default_keyid", bob},
        {"qel keypkg list --json %me", 0, "\"packages\"", bob},
        {"qel keypkg get --id other -o $x %me", 4, "other", bob},
        {"qel cert set $c", 0, "is stored", alice},
        {"qel cert set --json $c2", 0, "\"subject\"", alice},
        {"qel cert set $bob", 1, "already", alice},
        {"qel cert set $two", 3, "holds 2", alice},
        {"qel cert get %alice", 0, "-----BEGIN CERTIFICATE-----", bob},
        {"qel cert list --json %alice", 0, "\"certificates\"", bob},
        {"qel cert list %bob", 1, "Unknown user", bob},
        {"qel cert list --repo file $missing", 3, "missing", bob},
        {"qel cert list --repo printer %alice", 2, "--repo", bob},
        {"qel cert chain $c", 0, "Alice", bob},
        {"qel cert chain --json --trusted %bob $c", 1, "", bob},
        {"qel cert set --repo default $c", 7, "OPEN_FILE", alice, true},
        {"qel cert set --repo default $c", 0, "certificate directory"},
        {"qel cert get --repo default %alice", 0, "BEGIN", bob},
        {"qel cert remove %alice", 2, "--all", alice},
        {"qel cert remove --all %alice", 8, "own user", bob, true},
        {"qel cert remove --cert $c2 %alice", 0, "no longer", alice},
        {"qel cert remove --cert $c2 %alice", 1, "does not exist", alice},
        {"qel naming who %alice", 0, me, bob},
        {"qel naming who --json %alice", 0, me, bob},
        {"qel naming status %me", 0, "1 certificate, 1 key package", bob},
        {"qel naming status --json %me", 0, "\"certificates\": 1", bob},
        {"qel naming status user/%me", 0, "1 certificate, 1 key package", bob},
        {"qel naming status", 0, "host 'sandbox': no entry", alice},
        {"qel naming status --json", 0, "\"this_host\": {", alice},
        {"qel naming status 192.0.2.1", 1, "no host of the address", bob},
        {"qel naming status host/sandbox", 1, "no entry", bob},
        {"qel cert set --to 127.0.0.1 $bob", 0, "is stored"},
        {"qel naming status 127.0.0.1", 0, "1 certificate, 0 key packages", bob},
        {"qel naming status --json host/localhost", 0, "\"host\": \"localhost\"", bob},
        {"qel naming status .../C=US/O=Nobody", 1, "no entry", bob},
        {"qel cert remove --all %bob", 0, "no longer"},
        // With the package nowhere but in the naming service.
        {"qellogin --passin file:$phrase", 0, "", alice},
        {"qel keypkg list --repo server", 0, "default_keyid", alice},
        {"qel keypkg list --repo server", 4, "not done a qellogin", bob, true},
        {"qel keypkg get --repo server -o /home/%me/got", 0, "", alice},
        {"qel keypkg set --repo server $p", 1, "already", alice},
        {"qel keypkg remove --repo server", 0, "no longer", alice},
        {"qel keypkg list --repo server --json", 4, "NOT_LOGGED_IN", alice},
        {"qellogin --passin file:$phrase", 4, "", alice},
        {"qel cert remove --all --json %alice", 0, "", alice},
        {"qel cert get %alice", 1, "Certificate not found", alice},
    });
    const std::string got = std::string("/home/") + me + "/got";
    check_as(alice, [&] { EXPECT_EQ(get(1, got.c_str(), own), QEL_OK); });
    const Mounted nothing("/var/fn", "mode=0755");
    expect_lines({
        {"qel naming status", 8, "not available", alice},
        {"qel naming status --json", 8, "\"available\": false", alice},
        {"qel naming who %alice", 8, "not available", alice},
        {"qel naming setup", 9, "super-user", alice, true},
        {"qel keypkg list", 8, "never set up", alice, true},
        {"qel keypkg set $p", 8, "naming setup", alice, true},
        {"qel cert get %alice", 8, "never set up", alice, true},
        {"qel naming setup --json", 0, "\"changed\": true"},
        {"qel naming setup --json", 0, "\"changed\": false"},
        {"qel keypkg list", 1, "Unknown user", alice},
    });
}

} // namespace
