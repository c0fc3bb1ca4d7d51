// What all commands share: the command line, help, exit statuses, broken output, manual pages.
#include "tools/run.h"

#include <algorithm>
#include <sstream>

namespace {

std::string joined(const std::vector<std::string> &words) {
    std::string text = "qel";
    for (const std::string &word : words)
        text += " " + word;
    return text;
}

struct UsageCase {
    const char *reason;
    std::vector<std::string> words;
    const char *told; // part of the first line on standard error
};

const UsageCase kUsage[] = {
    {"no command", {}, "no command"},
    {"unknown command, near a known one", {"singn"}, "did you mean 'sign'"},
    {"beginning of a command", {"dig"}, "did you mean 'digest'"},
    {"half of a command of two words", {"cert"}, "second word"},
    {"wrong second word", {"cert", "sow"}, "'cert sow'"},
    {"option before the command", {"--batch", "digest"}, "options follow the command"},
    {"unknown long option", {"digest", "--nonsense"}, "'--nonsense'"},
    {"unknown letter among known ones", {"cert", "show", "-fx"}, "'-x'"},
    {"ambiguous abbreviation", {"sign", "--a"}, "'--a'"},
    {"value for an option without one", {"digest", "--json=yes"}, "takes no value"},
    {"no value", {"sign", "--key"}, "'--key' needs a value"},
    {"empty value", {"sign", "--key="}, "needs a value"},
    {"option given twice", {"digest", "-a", "md5", "-a", "md2"}, "twice"},
    {"value that is none of the choices", {"digest", "-a", "sha1"}, "md2 or md5, not 'sha1'"},
    {"two choices as one value", {"digest", "-a", "md2|md5"}, "not 'md2|md5'"},
    {"required option left out", {"verify", "file"}, "'--signature' is needed"},
    {"operand left out", {"cert", "verify"}, "too few"},
    {"one operand too many", {"sign", "-k", "key", "a", "b"}, "'b'"},
    {"empty operand", {"digest", ""}, "empty"},
    {"neither key nor certificate", {"verify", "-s", "sig", "file"}, "one of '--key' and '--cert'"},
    {"both key and certificate", {"verify", "-s", "a", "-k", "b", "-c", "c"}, "one of '--key'"},
    {"standard input twice", {"sign", "-k", "-", "-"}, "standard input"},
    {"unknown type", {"asn1", "Nonsense", "x"}, "'Nonsense'"},
    {"type number beyond the last", {"asn1", "37", "x"}, "'37'"},
    {"type with a file of its own", {"asn1", "SignedDataFm", "x"}, "give SignedData"},
    {"output without encoding", {"asn1", "Name", "-o", "x", "y"}, "'--encode'"},
    {"block that is no number",
     {"dearmor", "-b", "1x", QEL_SOURCE "/tests/vectors/armour/01.pem"},
     "'1x'"},
    {"unknown shell", {"completion", "csh"}, "bash"},
    {"control characters in what is quoted", {"digest", "--\x1b[2J"}, "\\x1b[2J"},
};

TEST(CommandLine, MisuseIsTwoLinesAndStatusTwo) {
    for (const UsageCase &row : kUsage) {
        SCOPED_TRACE(row.reason);
        const Ran ran = qel(row.words);
        EXPECT_EQ(ran.exit, 2) << ran.err;
        EXPECT_EQ(std::count(ran.err.begin(), ran.err.end(), '\n'), 2) << ran.err;
        const std::string first = ran.err.substr(0, ran.err.find('\n'));
        EXPECT_TRUE(holds(first, row.told)) << first;
        EXPECT_TRUE(holds(ran.err, "\nTry 'qel help")) << ran.err;
        EXPECT_EQ(ran.err.find('\x1b'), ran.err.npos);

        auto words = row.words;
        const bool two_words = words.size() > 1 && words[0] == "cert";
        words.insert(words.begin() + (words.empty() ? 0 : two_words ? 2 : 1), "--json");
        EXPECT_EQ(qel(words).json()["error"]["exit_status"], 2);
        EXPECT_EQ(ran.out, "");
    }
    EXPECT_EQ(qel({"digest", "--", "--json", ""}).out, "") << "a file of that name";
}

TEST(CommandLine, OptionsEndAtTwoDashes) {
    const TemporaryFolder folder;
    write_file(folder.path("-a"), bytes_of("abc"));
    ASSERT_EQ(chdir(folder.path("").c_str()), 0);
    const Ran ran = qel({"digest", "--", "-a"});
    EXPECT_EQ(ran.exit, 0) << ran.err;
    EXPECT_EQ(ran.out, "900150983cd24fb0d6963f7d28e17f72  -a\n");
    ASSERT_EQ(chdir("/"), 0);
}

// The commands that help lists, by their names.
std::vector<std::vector<std::string>> listed_commands() {
    std::istringstream lines(qel({"--help"}).out);
    std::vector<std::vector<std::string>> commands;
    bool inside = false;
    for (std::string line; std::getline(lines, line) && !(inside && line.empty());) {
        if (inside) {
            std::istringstream name(line.substr(2, 15));
            auto &words = commands.emplace_back();
            for (std::string word; name >> word;)
                words.push_back(word);
        }
        inside = inside || line == "Commands:";
    }
    return commands;
}

TEST(Help, EveryCommandHasHelpWhereverItIsAskedFor) {
    const auto commands = listed_commands();
    ASSERT_GE(commands.size(), 13U);
    for (auto words : commands) {
        SCOPED_TRACE(joined(words));
        auto asked = words;
        asked.insert(asked.begin(), "help");
        const Ran help = qel(asked);
        EXPECT_EQ(help.exit, 0) << help.err;
        EXPECT_TRUE(holds(help.out, "Usage: " + joined(words)));
        words.push_back("--help");
        const Ran option = qel(words);
        EXPECT_EQ(option.exit, 0) << option.err;
        EXPECT_EQ(option.out, help.out);
        EXPECT_EQ(option.err, "");
    }
    EXPECT_TRUE(holds(qel({"help", "cert"}).out, "cert verify"));
    EXPECT_EQ(qel({"--version"}).out.substr(0, 4), "qel ");
}

TEST(ManualPages, ThoseInTheTreeAreThoseOfTheProgram) {
    const TemporaryFolder folder;
    const std::string made = folder.path("");
    ASSERT_EQ(qel({"man", "--directory", made}).exit, 0);
    const std::string kept = QEL_SOURCE "/man";
    for (const auto &[left, right] : {std::pair(made, kept), std::pair(kept, made)}) {
        const Ran listed = run_program({"find", left, "-name", "qel*.1", "-printf", "%f\n"});
        std::istringstream names(listed.out);
        std::size_t count = 0;
        for (std::string name; std::getline(names, name); ++count) {
            ASSERT_EQ(access((right + "/" + name).c_str(), R_OK), 0)
                << name << " is in " << left << " only: run 'qel man --directory man'";
            EXPECT_EQ(read_file(left + "/" + name), read_file(right + "/" + name))
                << name << " is stale: run 'qel man --directory man'";
        }
        EXPECT_GE(count, 14U);
    }
}

TEST(Completion, ScriptCompletesCommandsOptionsAndChoices) {
    const struct {
        const char *reason;
        const char *words;
        const char *completed;
    } rows[] = {
        {"first words, each once", "qel ce", "cert"},
        {"second words", "qel cert ''", "show verify get list set remove chain"},
        {"options of a command of two words", "qel cert verify --allow-", "--allow-expired"},
        {"choices after the long option", "qel sign --algorithm ''", "md2 md5"},
        {"choices after the letter", "qel sign -a m", "md2 md5"},
        {"options of every command", "qel digest --js", "--json"},
    };
    const TemporaryFolder folder;
    const std::string script = folder.path("script");
    write_file(script, bytes_of(qel({"completion", "bash"}).out));
    for (const auto &row : rows) {
        const Ran ran = run_program({"bash", "-c",
                                     ". " + script + "; COMP_WORDS=(" + row.words +
                                         "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _qel; "
                                         "echo \"${COMPREPLY[*]}\""});
        EXPECT_EQ(ran.out, std::string(row.completed) + "\n") << row.reason << ran.err;
    }
}

TEST(Output, LostOutputIsStatusSevenEvenAtTheLastFlush) {
    const std::vector<std::vector<std::string>> rows = {
        {"digest", vector_path("outcomes.txt")},
        {"--help"},
        {"--version"},
        {"explain", "--json"},
        {"cert", "show", vector_path("armour/01.pem")},
        {"armor", vector_path("outcomes.txt")}, // more than is buffered
        {"completion", "bash"},
        {"man"},
    };
    for (const auto &words : rows) {
        SCOPED_TRACE(joined(words));
        const Ran ran = qel(words, {.output_file = "/dev/full"});
        EXPECT_EQ(ran.exit, 7);
        EXPECT_TRUE(holds(ran.err, "standard output: No space left")) << ran.err;
        EXPECT_EQ(std::count(ran.err.begin(), ran.err.end(), '\n'), 2) << ran.err;
        EXPECT_EQ(qel(words, {.close_output = true}).exit, 7);
    }
}

TEST(Output, FilesThatMayNotGrowAreStatusSevenAndLeaveNothing) {
    const TemporaryFolder folder;
    const Ran ran = run_program({"bash", "-c", "ulimit -f 10; \"$0\" random 100000 -o \"$1\"",
                                 QEL_TOOL, folder.path("file")});
    EXPECT_EQ(ran.exit, 7);
    EXPECT_TRUE(holds(ran.err, "File too large")) << ran.err;
    EXPECT_EQ(run_program({"find", folder.path(""), "-name", "file*"}).out, "");
}

TEST(Output, WordsStandBehindWhatWasPutBeforeThem) {
    const TemporaryFolder folder;
    const std::string path = folder.path("data");
    write_file(path, bytes_of("abc"));
    const Ran ran = qel({"digest", path, "absent", path}, {.together = true});
    EXPECT_EQ(ran.exit, 3);
    EXPECT_LT(ran.out.find("900150983cd2"), ran.out.find("absent")) << ran.out;
    EXPECT_LT(ran.out.find("absent"), ran.out.rfind("900150983cd2")) << ran.out;
}

TEST(Explain, NumberAndNameFindTheSameStatus) {
    const Ran all = qel({"explain", "--json"});
    const Json statuses = all.json()["statuses"];
    ASSERT_EQ(statuses.size(), 56U);
    for (const Json &row : statuses) {
        const std::string name = row["name"];
        SCOPED_TRACE(name);
        EXPECT_FALSE(row["meaning"].get<std::string>().empty());
        EXPECT_FALSE(row["advice"].get<std::string>().empty());
        const std::string number = std::to_string(row["number"].get<int>());
        const Json found = qel({"explain", "--json", number}).json()["statuses"];
        ASSERT_EQ(found.size(), 1U);
        EXPECT_EQ(found[0], row);
    }
    const struct {
        const char *reason;
        const char *code;
        int exit;
        const char *told;
    } rows[] = {
        {"by number", "30", 0, "status 30 QEL_ERR_KEY_EXPIRED: Public key has expired"},
        {"by whole name", "QEL_ERR_KEY_EXPIRED", 0, "status 30 "},
        {"by short name in small letters", "key_expired", 0, "status 30 "},
        {"success, whose name has another prefix", "ok", 0, "status 0 QEL_OK: Success"},
        {"the first number beyond", "56", 1, ""},
        {"a number that wraps", "4294967326", 1, ""},
        {"a beginning of a name", "KEY_EXP", 1, ""},
        {"a bare prefix", "QEL_ERR_", 1, ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const Ran ran = qel({"explain", row.code});
        EXPECT_EQ(ran.exit, row.exit) << ran.err;
        EXPECT_EQ(ran.out.substr(0, std::string(row.told).size()), row.told);
        EXPECT_EQ(ran.out.empty(), row.exit != 0);
    }
}

TEST(Failures, TellWhatFileWhyAndTheNextStep) {
    const TemporaryFolder folder;
    write_file(folder.path("garbage"), bytes_of("not a credential"));
    write_file(folder.path("empty"), {});
    Bytes cut = vector_file("certs/md5/root-agency-96.der"), followed = cut;
    cut.pop_back();
    followed.insert(followed.end(), 3, 0);
    write_file(folder.path("cut.der"), cut);
    write_file(folder.path("followed.der"), followed);
    write_file(folder.path("hollow"), from_hex("3014020100300d06092a864886f70d01010105000400"));
    write_file(folder.path("cut.pem"), bytes_of("-----BEGIN CERTIFICATE-----\nMIIB\n"));
    write_file(folder.path("bad.pem"),
               bytes_of("-----BEGIN CERTIFICATE-----\nMI!B\n-----END CERTIFICATE-----\n"));
    const struct {
        const char *reason;
        std::vector<std::string> words;
        const char *why;
    } rows[] = {
        {"no such file", {"digest", folder.path("absent")}, "No such file"},
        {"a folder", {"digest", folder.path("")}, "Is a directory"},
        {"no such certificate", {"cert", "show", folder.path("absent")}, "No such file"},
        {"garbage", {"cert", "show", folder.path("garbage")}, "QEL_ERR_ASN1_DECODE"},
        {"empty file", {"cert", "verify", folder.path("empty")}, "empty"},
        {"no END line", {"cert", "show", folder.path("cut.pem")}, "END line"},
        {"a character that is no base 64", {"dearmor", folder.path("bad.pem")}, "not base 64"},
        {"a byte that is missing", {"cert", "show", folder.path("cut.der")}, "1 bytes are missing"},
        {"bytes behind the value", {"cert", "show", folder.path("followed.der")}, "3 bytes follow"},
        {"times from 2050 on",
         {"cert", "verify", vector_path("certs/md5/wrong-sigalg-2015.der")},
         "its validity is in GeneralizedTime"},
        {"armour around armour", {"armor", vector_path("armour/01.pem")}, "armoured text already"},
        {"no armour", {"dearmor", vector_path("certs/md5/root-agency-96.der")}, "no BEGIN line"},
        {"another type", {"asn1", "KeyPkg", vector_path("armour/01.pem")}, "QEL_ERR_ASN1_DECODE"},
        {"a certificate is no private key",
         {"sign", "-k", vector_path("armour/01.pem"), "-o", folder.path("s"),
          folder.path("garbage")},
         "it holds CERTIFICATE"},
        {"a private key of no octets",
         {"sign", "-k", folder.path("hollow"), "-o", folder.path("s"), folder.path("garbage")},
         "holds no key"},
        {"a certificate where a key is asked for",
         {"verify", "-k", vector_path("armour/01.pem"), "-s", folder.path("garbage"),
          folder.path("garbage")},
         "it holds a certificate"},
        {"a certificate where a signature is asked for",
         {"verify", "-c", vector_path("armour/01.pem"), "-s", vector_path("armour/01.pem"),
          folder.path("garbage")},
         "it holds a certificate"},
        {"an impossible name", {"dn", "CN"}, "QEL_ERR_DN_NO_EQUALS"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const Ran ran = qel(row.words);
        EXPECT_EQ(ran.exit, 3) << ran.err;
        EXPECT_EQ(ran.out, "");
        EXPECT_TRUE(holds(ran.err, row.why)) << ran.err;
        EXPECT_GE(std::count(ran.err.begin(), ran.err.end(), '\n'), 1);

        auto words = row.words;
        words.insert(words.begin() + (words[0] == "cert" ? 2 : 1), "--json");
        const Ran json = qel(words);
        EXPECT_EQ(json.exit, 3);
        EXPECT_EQ(json.json()["schema"], 1);
        EXPECT_TRUE(holds(json.out, "\"exit_status\": 3")) << json.out;
    }
}

} // namespace
