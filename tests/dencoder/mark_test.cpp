// Contents and encodings that are kept in files.
#include "runtime.h"
#include "support/fault.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using dencoder::CountedBytes;

// A folder that is TMPDIR for the runtime.
class Marked : public ::testing::Test {
protected:
    void SetUp() override { setenv("TMPDIR", folder.path("").c_str(), 1); }
    void TearDown() override { unsetenv("TMPDIR"); }

    std::size_t files() const {
        const std::filesystem::directory_iterator begin(folder.path("")), end;
        return static_cast<std::size_t>(std::distance(begin, end));
    }

    // A handle for a file with these contents; as the record of a type kept in a file.
    CountedBytes file(const std::string &name, const Bytes &contents) {
        write_file(folder.path(name), contents);
        return handle(name);
    }

    CountedBytes handle(const std::string &name) {
        return {0, static_cast<uint8_t *>(ossMarkObj(runtime.get(), 1, folder.path(name).c_str()))};
    }

    OssBuf buffer(const CountedBytes &handle) const { return {0, handle.value}; }

    // Forgets the handle; the file's name.
    std::string unmark(uint8_t *handle) {
        char *name = static_cast<char *>(ossUnmarkObj(runtime.get(), handle));
        if (name == nullptr)
            return "";
        const std::string result = name;
        std::free(name);
        return result;
    }

    TemporaryFolder folder;
    Runtime runtime;
};

TEST_F(Marked, HandlesGiveTheirNamesBackOnce) {
    const CountedBytes first = handle("first"), second = handle("second"), third = handle("third");
    EXPECT_EQ(unmark(second.value), folder.path("second"));
    EXPECT_EQ(unmark(second.value), "");
    EXPECT_EQ(unmark(first.value), folder.path("first"));
    EXPECT_EQ(unmark(third.value), folder.path("third"));
    EXPECT_EQ(unmark(nullptr), "");
    EXPECT_EQ(ossMarkObj(runtime.get(), 0, "name"), nullptr);
    EXPECT_EQ(ossMarkObj(runtime.get(), 2, "name"), nullptr);
    EXPECT_EQ(ossMarkObj(runtime.get(), 1, nullptr), nullptr);
}

TEST_F(Marked, DecodedContentsGoToATemporaryFile) {
    const struct {
        const char *reason;
        int pdu;
        Bytes input, contents;
    } cases[] = {
        {"octets", kOctetsFile, ber("04{'abc'}"), bytes_of("abc")},
        {"no octets", kOctetsFile, ber("0400"), {}},
        {"octets in pieces", kOctetsFile, ber("2480 04{'ab'} 24{ 04{'c'} } 0000"), bytes_of("abc")},
        {"many octets", kOctetsFile, tlv(4, Bytes(300000, 7)), Bytes(300000, 7)},
        {"an open type, with tag and length", kAnyFile, ber("30{0500}"), ber("30{0500}")},
        {"an open type of indefinite length", kAnyFile, ber("3080 0500 0000"),
         ber("3080 0500 0000")},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.reason);
        auto value = runtime.decode<CountedBytes>(each.input, each.pdu);
        ASSERT_NE(value, nullptr) << runtime.message();
        EXPECT_EQ(value->length, each.contents.size());
        ASSERT_EQ(files(), 1u);
        const auto entry = *std::filesystem::directory_iterator(folder.path(""));
        EXPECT_TRUE(read_file(entry.path().string()) == each.contents);
        EXPECT_EQ(entry.status().permissions(), std::filesystem::perms{0600});
        const Bytes again = runtime.encode(value.get(), each.pdu);
        EXPECT_TRUE(again == (each.pdu == kAnyFile ? each.contents : tlv(4, each.contents)));
        value.reset();
        EXPECT_EQ(files(), 0u);
    }
}

// The address of an unmarked handle must not come to stand for a later file, and its own file stays.
TEST_F(Marked, ARecordWithAnUnmarkedHandleTouchesNoFile) {
    auto first = runtime.decode<CountedBytes>(ber("04{'abc'}"), kOctetsFile);
    auto second = runtime.decode<CountedBytes>(ber("04{'def'}"), kOctetsFile);
    const std::string name = unmark(first->value);
    unmark(second->value);
    auto third = runtime.decode<CountedBytes>(ber("04{'ghi'}"), kOctetsFile);
    first.reset();
    second.reset();
    EXPECT_EQ(runtime.encode(third.get(), kOctetsFile), ber("04{'ghi'}"));
    EXPECT_EQ(text_of(read_file(name)), "abc");
}

TEST_F(Marked, TheCallersHandleOutlivesTheRecord) {
    auto value = runtime.decode<CountedBytes>(ber("04{'abc'}"), kOctetsFile);
    const std::string name = unmark(value->value);
    value->value = static_cast<uint8_t *>(ossMarkObj(runtime.get(), 1, name.c_str()));
    uint8_t *const handle = value->value;
    value.reset();
    EXPECT_EQ(text_of(read_file(name)), "abc");
    EXPECT_EQ(unmark(handle), name);
}

TEST_F(Marked, TheEndOfTheEnvironmentRemovesTemporaryFilesOnly) {
    Runtime other;
    void *const kept = ossMarkObj(other.get(), 1, folder.path("kept").c_str());
    write_file(folder.path("kept"), bytes_of("x"));
    EXPECT_NE(kept, nullptr);
    auto value = other.decode<CountedBytes>(ber("04{'abc'}"), kOctetsFile);
    ASSERT_EQ(files(), 2u);
    ossterm(other.get());
    EXPECT_EQ(files(), 1u);
    ossinit(other.get(), &test_schema::kTable);
    value.reset(); // a handle of the past is no handle
}

TEST_F(Marked, AFailedDecodingLeavesNoFile) {
    OssStatus status = OSS_DONE;
    for (const char *input : {"04{'abc'} 00", "2480 04{'ab'} 0500", "2480 04{'ab'}"}) {
        EXPECT_EQ(runtime.decode(ber(input), kOctetsFile, &status), nullptr);
        EXPECT_EQ(files(), 0u) << input;
    }
    setenv("TMPDIR", folder.path("missing").c_str(), 1);
    EXPECT_EQ(runtime.decode(ber("0400"), kOctetsFile, &status), nullptr);
    EXPECT_EQ(status, OSS_FILE_ERROR);
}

TEST_F(Marked, WhatIsEncodedComesFromTheCallersFile) {
    const CountedBytes octets = file("octets", bytes_of("abc")), open = file("open", ber("0500")),
                       two = file("two", ber("05000500")), cut = file("cut", ber("0502")),
                       empty = file("empty", {}), missing = handle("missing"),
                       directory = {0,
                                    static_cast<uint8_t *>(ossMarkObj(runtime.get(), 1, "/tmp"))};
    const struct {
        const char *reason;
        int pdu;
        const CountedBytes *value;
        OssStatus status;
        const char *encoding;
    } cases[] = {
        {"octets", kOctetsFile, &octets, OSS_DONE, "04{'abc'}"},
        {"no octets", kOctetsFile, &empty, OSS_DONE, "0400"},
        {"an open type", kAnyFile, &open, OSS_DONE, "0500"},
        {"an open type that holds two values", kAnyFile, &two, OSS_BAD_VALUE, ""},
        {"an open type that holds half a value", kAnyFile, &cut, OSS_BAD_VALUE, ""},
        {"an open type that holds nothing", kAnyFile, &empty, OSS_BAD_VALUE, ""},
        {"a file that is not there", kOctetsFile, &missing, OSS_FILE_ERROR, ""},
        {"a folder", kOctetsFile, &directory, OSS_FILE_ERROR, ""},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.reason);
        OssStatus status = OSS_DONE;
        EXPECT_EQ(to_hex(runtime.encode(each.value, each.pdu, &status)),
                  to_hex(ber(each.encoding)));
        EXPECT_EQ(status, each.status) << runtime.message();
    }
    EXPECT_EQ(files(), 5u); // the caller's files are the caller's
}

// Everything that the window on a file can cut apart is cut apart somewhere in these.
TEST_F(Marked, EncodingsInFilesEqualThoseInMemory) {
    std::string numbers;
    for (int i = 0; i < 60000; ++i)
        numbers += i % 3 == 0 ? "020105" : i % 3 == 1 ? "02020100" : "020400ffffff";
    const struct {
        const char *reason;
        int pdu;
        Bytes encoding;
    } cases[] = {
        {"a small value", kInteger, ber("020105")},
        {"a set of many numbers", kNumbers, tlv(0x31, ber(numbers))},
        {"many octets", kOctets, tlv(4, Bytes(200000, 5))},
        {"octets in many pieces", kOctets,
         ber("2480") + repeated("0403aabbcc", 50000) + ber("0000")},
        {"an open type of indefinite length", kAny,
         ber("3080") + repeated("3080 0400 0000", 40000) + ber("0000")},
        {"an open type that begins deep inside", kSample,
         tlv(0x30, tlv(0xa2, repeated("020105", 21840)) + tlv(4, Bytes(100000, 1)))},
        {"a cut integer", kInteger, ber("0202")},
        {"something left over", kNumbers, tlv(0x31, ber(numbers)) + ber("00")},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.reason);
        OssStatus in_memory = OSS_DONE, in_file = OSS_DONE;
        const auto expected = runtime.decode(each.encoding, each.pdu, &in_memory);
        const CountedBytes input = file("input", each.encoding), output = handle("output");
        const auto value = runtime.decode(buffer(input), each.pdu, &in_file);
        EXPECT_EQ(in_file, in_memory);
        if (value == nullptr || expected == nullptr)
            continue;
        const Bytes encoding = runtime.encode(expected.get(), each.pdu);
        OssBuf target = buffer(output);
        ASSERT_EQ(ossEncode(runtime.get(), each.pdu, value.get(), &target), OSS_DONE)
            << runtime.message();
        EXPECT_EQ(target.value, output.value);
        EXPECT_EQ(target.length, encoding.size());
        EXPECT_TRUE(read_file(folder.path("output")) == encoding);
        EXPECT_EQ(std::filesystem::status(folder.path("output")).permissions(),
                  std::filesystem::perms{0600});
        std::filesystem::remove(folder.path("output"));
    }
}

TEST_F(Marked, AnEncodingReplacesALongerFileButNotItsOwnContents) {
    const CountedBytes contents = file("contents", bytes_of("abc")),
                       output = file("output", Bytes(1000, 1));
    OssBuf target = buffer(output);
    ASSERT_EQ(ossEncode(runtime.get(), kOctetsFile, &contents, &target), OSS_DONE);
    EXPECT_EQ(to_hex(read_file(folder.path("output"))), to_hex(ber("04{'abc'}")));

    std::filesystem::create_hard_link(folder.path("contents"), folder.path("link"));
    const CountedBytes link = handle("link");
    for (const CountedBytes &same : {contents, link}) {
        target = buffer(same);
        EXPECT_EQ(ossEncode(runtime.get(), kOctetsFile, &contents, &target), OSS_BAD_VALUE);
        EXPECT_EQ(text_of(read_file(folder.path("contents"))), "abc");
    }
    const CountedBytes nowhere = handle("missing/output");
    target = buffer(nowhere);
    EXPECT_EQ(ossEncode(runtime.get(), kOctetsFile, &contents, &target), OSS_FILE_ERROR);
}

// ---- Faults -------------------------------------------------------------------------------------

TEST_F(Marked, ReportsEachFailedCall) {
    const CountedBytes contents = file("contents", Bytes(100000, 3)), output = handle("output"),
                       input = file("input", tlv(4, Bytes(100000, 3)));
    for (const fault::Call call :
         {fault::Call::open, fault::Call::read, fault::Call::write, fault::Call::close}) {
        int failures = 0;
        for (std::size_t nth = 1;; ++nth) {
            SCOPED_TRACE(static_cast<int>(call) * 100 + static_cast<int>(nth));
            OssBuf target = buffer(output);
            fault::fail(call, nth);
            const OssStatus encoded = ossEncode(runtime.get(), kOctetsFile, &contents, &target);
            OssStatus decoded = OSS_DONE;
            auto value = runtime.decode<CountedBytes>(buffer(input), kOctetsFile, &decoded);
            const bool met = fault::clear(call);
            const bool failed = encoded == OSS_FILE_ERROR || decoded == OSS_FILE_ERROR;
            // Closing what was only read harms nothing.
            EXPECT_TRUE(met == failed || (met && call == fault::Call::close));
            EXPECT_EQ(value != nullptr, decoded == OSS_DONE);
            if (encoded != OSS_DONE && call == fault::Call::write) {
                EXPECT_EQ(std::filesystem::file_size(folder.path("output")), 0u);
            }
            failures += failed;
            value.reset();
            EXPECT_LE(files(), 3u);
            if (!met)
                break;
            ASSERT_LT(nth, 100u);
        }
        EXPECT_GE(failures, 2); // of the file that is written, and of the temporary one
    }
}

TEST_F(Marked, AnInterruptedCallIsRepeated) {
    const CountedBytes contents = file("contents", bytes_of("abc")), output = handle("output");
    for (const fault::Call call : {fault::Call::read, fault::Call::write}) {
        OssBuf target = buffer(output);
        fault::fail(call, 1, EINTR);
        EXPECT_EQ(ossEncode(runtime.get(), kOctetsFile, &contents, &target), OSS_DONE);
        EXPECT_TRUE(fault::clear(call));
        EXPECT_EQ(to_hex(read_file(folder.path("output"))), to_hex(ber("04{'abc'}")));
    }
}

TEST_F(Marked, ReportsEachFailedAllocation) {
    const CountedBytes contents = file("contents", bytes_of("abc")), output = handle("output"),
                       input = file("input", ber("04{'abc'}"));
    fault::each_allocation([&] {
        OssBuf target = buffer(output);
        const OssStatus encoded = ossEncode(runtime.get(), kOctetsFile, &contents, &target);
        OssStatus decoded = OSS_DONE;
        auto value = runtime.decode(buffer(input), kOctetsFile, &decoded);
        EXPECT_EQ(encoded == OSS_NO_MEMORY || decoded == OSS_NO_MEMORY, fault::met());
        value.reset();
        EXPECT_LE(files(), 3u);
    });
    fault::each_allocation([&] {
        void *marked = ossMarkObj(runtime.get(), 1, "name");
        EXPECT_EQ(marked == nullptr, fault::met());
    });
}

TEST_F(Marked, AFileThatCannotBeReadLeavesTheCallersBuffer) {
    const CountedBytes contents = file("contents", bytes_of("abc"));
    uint8_t bytes[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    for (std::size_t nth = 1;; ++nth) {
        OssBuf target = {8, bytes};
        fault::fail(fault::Call::read, nth);
        const OssStatus status = ossEncode(runtime.get(), kOctetsFile, &contents, &target);
        if (!fault::clear(fault::Call::read)) {
            EXPECT_EQ(status, OSS_DONE);
            EXPECT_EQ(target.length, 5u);
            EXPECT_GT(nth, 1u);
            break;
        }
        EXPECT_EQ(status, OSS_FILE_ERROR);
        EXPECT_EQ(target.length, 8u);
        EXPECT_EQ(to_hex(bytes, 8), "0909090909090909");
    }
}

// ---- Contents that memory could not hold --------------------------------------------------------

constexpr off_t kLarge = off_t{256} << 20;

// Encodes a sparse file into a file, and decodes that into a third; whether all sizes are right.
bool pass_through(const std::string &contents, const std::string &encoding) {
    Runtime runtime;
    CountedBytes record = {0,
                           static_cast<uint8_t *>(ossMarkObj(runtime.get(), 1, contents.c_str()))};
    OssBuf file = {0, static_cast<uint8_t *>(ossMarkObj(runtime.get(), 1, encoding.c_str()))};
    if (ossEncode(runtime.get(), kOctetsFile, &record, &file) != OSS_DONE ||
        file.length != kLarge + 6)
        return false;
    const auto value = runtime.decode<CountedBytes>(file, kOctetsFile);
    return value != nullptr && value->length == kLarge;
}

TEST_F(Marked, LargeContentsPassThroughLittleMemory) {
    const std::string contents = folder.path("contents"), encoding = folder.path("encoding");
    write_file(contents, bytes_of("begin"));
    ASSERT_EQ(truncate(contents.c_str(), kLarge), 0);
    const pid_t child = fork();
    if (child == 0) {
        rusage before, after;
        getrusage(RUSAGE_SELF, &before);
        const bool passed = pass_through(contents, encoding);
        getrusage(RUSAGE_SELF, &after);
        _exit(!passed ? 1 : after.ru_maxrss - before.ru_maxrss > 8 * 1024 ? 2 : 0);
    }
    ASSERT_GT(child, 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: a wrong result; 2: too much memory";
}

} // namespace
