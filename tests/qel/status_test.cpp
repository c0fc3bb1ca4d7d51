#include "support/fault.h"
#include "support/files.h"

#include <lib/context.h>
#include <qel/qelp.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <thread>

namespace {

struct TextCase {
    QelStatus code;
    const char *text;
};

// First and last; the catalogues' test compares all of them.
const TextCase kTexts[] = {{0, "Success"},
                           {1, "Invalid buffer size"},
                           {55, "Cannot open file"},
                           {56, "Unknown Error"},
                           {100, "Unknown Error"},
                           {0x7FFFFFFF, "Unknown Error"},
                           {0x80000000, "Unknown Error"}, // negative
                           {0xFFFFFFFF, "Unknown Error"}};

// No catalogue but those that a test makes, whatever the machine has.
class Status : public testing::Test {
protected:
    void SetUp() override { use_catalogues_of(folder.path("none")); }
    void TearDown() override { unsetenv("NLSPATH"); }

    void use_catalogues_of(const std::string &path) {
        setenv("NLSPATH", (path + "/%N.cat").c_str(), 1);
    }

    // A catalogue of set 2 with the messages given ("33 Text"), in a folder of its own.
    std::string catalogue(const std::string &name, const std::string &messages) {
        const std::string path = folder.path(name);
        std::filesystem::create_directory(path);
        write_file(path + "/source", bytes_of("$set 1\n1 Wrong set\n$set 2\n" + messages));
        const std::string command = "gencat " + path + "/qelcat.cat " + path + "/source";
        EXPECT_EQ(std::system(command.c_str()), 0);
        return path;
    }

    qel::OwnedContext context() {
        QelContext *made = nullptr;
        EXPECT_EQ(__qel_init(&made, nullptr, nullptr), QEL_OK);
        return qel::OwnedContext(made);
    }

    TemporaryFolder folder;
};

TEST_F(Status, DefaultTexts) {
    const qel::OwnedContext without_catalogue = context();
    const QelContext zero = {};
    for (const TextCase &row : kTexts) {
        EXPECT_STREQ(qel_strerror(nullptr, row.code), row.text);
        EXPECT_STREQ(qel_strerror(&zero, row.code), row.text);
        EXPECT_STREQ(qel_strerror(without_catalogue.get(), row.code), row.text);
    }
}

TEST_F(Status, EveryCodeHasATextOfItsOwn) {
    std::set<std::string> texts;
    for (QelStatus code = 0; code <= QEL_ERR_OPEN_FILE + 1; ++code)
        texts.insert(qel_strerror(nullptr, code));
    EXPECT_EQ(texts.size(), 57u);
    EXPECT_EQ(texts.count(""), 0u);
}

const char kGerman[] = "1 Erfolg\n33 Falsches Argument\n56 Datei\n57 Zuviel\n100 Unbekannt\n";

const TextCase kGermanTexts[] = {
    {0, "Erfolg"}, {1, "Invalid buffer size"}, {32, "Falsches Argument"},
    {55, "Datei"}, {56, "Unbekannt"},          {99, "Unbekannt"},
};

TEST_F(Status, TextsOfTheCataloguesSecondSet) {
    use_catalogues_of(catalogue("german", kGerman));
    const qel::OwnedContext german = context();
    for (const TextCase &row : kGermanTexts) {
        EXPECT_STREQ(qel_strerror(german.get(), row.code), row.text);
        EXPECT_STREQ(qel_strerror(nullptr, row.code), row.text);
    }
}

TEST_F(Status, AContextKeepsTheCatalogueItWasMadeWith) {
    const qel::OwnedContext none = context();
    use_catalogues_of(catalogue("german", kGerman));
    const qel::OwnedContext german = context();
    use_catalogues_of(folder.path("none"));
    EXPECT_STREQ(qel_strerror(none.get(), 0), "Success");
    EXPECT_STREQ(qel_strerror(german.get(), 0), "Erfolg");
    EXPECT_STREQ(qel_strerror(nullptr, 0), "Success");
}

TEST_F(Status, TextsOutliveACatalogueThatIsOpenForOneCall) {
    const std::string german = catalogue("german", kGerman);
    const std::string dutch = catalogue("dutch", "1 Gelukt\n");
    use_catalogues_of(german);
    const char *first = qel_strerror(nullptr, 0);
    const char *other = qel_strerror(nullptr, 32);
    use_catalogues_of(dutch);
    const char *second = qel_strerror(nullptr, 0);
    std::filesystem::remove_all(german);
    EXPECT_STREQ(first, "Erfolg");
    EXPECT_STREQ(other, "Falsches Argument");
    EXPECT_STREQ(second, "Gelukt");

    use_catalogues_of(catalogue("german", kGerman));
    EXPECT_EQ(qel_strerror(nullptr, 0), first); // is kept once
}

TEST_F(Status, WithoutMemoryTheDefaultTextServes) {
    use_catalogues_of(catalogue("french", "1 Pas encore vu\n"));
    fault::fail_always(fault::Call::allocate);
    const char *text = qel_strerror(nullptr, 0);
    EXPECT_TRUE(fault::clear(fault::Call::allocate));
    EXPECT_STREQ(text, "Success");
}

TEST_F(Status, ThreadsWithoutAContext) {
    use_catalogues_of(catalogue("threads", "1 one\n2 two\n3 three\n4 four\n"));
    const char *const expected[] = {"one", "two", "three", "four"};
    std::vector<std::thread> threads;
    for (unsigned start = 0; start < 4; ++start)
        threads.emplace_back([&, start] {
            for (unsigned i = 0; i < 400; ++i)
                EXPECT_STREQ(qel_strerror(nullptr, (start + i) % 4), expected[(start + i) % 4]);
        });
    for (std::thread &thread : threads)
        thread.join();
}

} // namespace
