// qel digest
#include "tools/run.h"

namespace {

TEST(Digest, PublishedValues) {
    const struct {
        const char *reason;
        const char *text;
        const char *algorithm;
        const char *digest;
    } rows[] = {
        {"RFC 1321, nothing", "", "md5", "d41d8cd98f00b204e9800998ecf8427e"},
        {"RFC 1321", "abc", "md5", "900150983cd24fb0d6963f7d28e17f72"},
        {"RFC 1319, nothing", "", "md2", "8350e5a3e24c153df2275c9f80692773"},
        {"RFC 1319", "abc", "md2", "da853b0d3f88d99b30283a69e6ded6bb"},
    };
    for (const auto &row : rows) {
        const Ran ran =
            qel({"digest", "--algorithm", row.algorithm}, {.input = bytes_of(row.text)});
        EXPECT_EQ(ran.exit, 0) << row.reason << ran.err;
        EXPECT_EQ(ran.out, std::string(row.digest) + "  -\n") << row.reason;
    }
}

TEST(Digest, SizesAroundTheReadBlockAgreeWithTheOracle) {
    const TemporaryFolder folder;
    const std::string path = folder.path("data");
    for (const std::size_t size : {262143, 262144, 262145, 1000000}) {
        Bytes data(size);
        for (std::size_t i = 0; i < size; ++i)
            data[i] = static_cast<uint8_t>(i * 7 + i / 251);
        write_file(path, data);
        const std::string expected = openssl({"dgst", "-md5", "-r", path}).out.substr(0, 32);
        EXPECT_EQ(qel({"digest", path}).out.substr(0, 32), expected) << size;
    }
}

TEST(Digest, OneUnreadableFileDoesNotSpoilTheOthers) {
    const TemporaryFolder folder;
    const std::string first = folder.path("first"), last = folder.path("last");
    write_file(first, bytes_of("abc"));
    write_file(last, bytes_of("abc"));
    const std::string abc = "900150983cd24fb0d6963f7d28e17f72";
    const Ran ran = qel({"digest", first, folder.path(""), folder.path("absent"), last});
    EXPECT_EQ(ran.exit, 3);
    EXPECT_EQ(ran.out, abc + "  " + first + "\n" + abc + "  " + last + "\n");
    EXPECT_TRUE(holds(ran.err, "Is a directory"));
    EXPECT_TRUE(holds(ran.err, "No such file"));

    const Ran json = qel({"digest", "--json", first, folder.path("absent")});
    EXPECT_EQ(json.exit, 3);
    const Json digests = json.json()["digests"];
    EXPECT_EQ(digests[0]["digest"], abc);
    EXPECT_EQ(digests[1]["error"]["exit_status"], 3);
}

TEST(Digest, NameOfAFileCannotFakeALine) {
    const TemporaryFolder folder;
    const std::string path = folder.path("a\n\x1b[31mb");
    write_file(path, bytes_of("abc"));
    const Ran ran = qel({"digest", path});
    EXPECT_EQ(ran.exit, 0);
    EXPECT_TRUE(holds(ran.out, "a\\x0a\\x1b[31mb\n")) << ran.out;
    EXPECT_EQ(std::count(ran.out.begin(), ran.out.end(), '\n'), 1);
}

} // namespace
