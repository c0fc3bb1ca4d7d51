// runtime.h: a small schema with one PDU of each kind, and an environment over it.
#ifndef TESTS_DENCODER_RUNTIME_H
#define TESTS_DENCODER_RUNTIME_H

#include "support/ber.h"

#include <dencoder/oss.h>
#include <dencoder/schema.h>

#include <cstdlib>
#include <memory>

// Records of the test schema.
struct Numbers {
    Numbers *next;
    int32_t *number;
};

struct Sample {
    uint8_t mask; // 0x80 flag, 0x40 number, 0x20 list
    uint8_t flag;
    int32_t number;
    char *text;
    Numbers *list;
    dencoder::CountedBytes *rest;
};

struct Choice {
    uint16_t choice;
    union {
        char *text;
        int32_t number;
        Sample *sample;
    } u;
};

enum Pdu {
    kBoolean = 1,
    kInteger,
    kUnsigned,
    kBig,
    kShortBig,
    kBits,
    kOctets,
    kIdentifier,
    kPrintable,
    kIa5,
    kT61,
    kTime,
    kAny,
    kSample,
    kNumbers,
    kChoice,
    kOctetsFile,
    kAnyFile,
    kPduCount = kAnyFile
};

namespace test_schema {
using namespace dencoder;

inline constexpr auto Flag = boolean("Flag");
inline constexpr auto Integer = integer<int32_t>("Integer");
inline constexpr auto Unsigned = integer<uint32_t>("Unsigned");
inline constexpr auto Big = big_integer<CountedBytes>("Big");
inline constexpr auto ShortBig = big_integer<ShortCountedBytes>("ShortBig");
inline constexpr auto Bits = bit_string<CountedBytes>("Bits");
inline constexpr auto Octets = octet_string<CountedBytes>("Octets");
inline constexpr auto Oid = object_identifier<Identifier>("Oid");
inline constexpr auto Printable =
    character_string("Printable", universal::printable_string, Alphabet::printable);
inline constexpr auto Ia5 = character_string("Ia5", universal::ia5_string, Alphabet::ascii);
inline constexpr auto T61 = character_string("T61", universal::t61_string, Alphabet::all);
inline constexpr auto When = utc_time<Time>("When");
inline constexpr auto Any = any<CountedBytes>("Any");
inline constexpr auto OctetsFile = octet_string_in_file<CountedBytes>("OctetsFile");
inline constexpr auto AnyFile = any_in_file<CountedBytes>("AnyFile");

inline constexpr Component kNumbersElement[] = {
    required(nullptr, Integer, DENCODER_FIELD(Numbers, number)),
};
inline constexpr auto NumberSet = set_of<Numbers>("NumberSet", kNumbersElement);

inline constexpr Component kSampleComponents[] = {
    defaulted("flag", Tag{}, Flag, DENCODER_FIELD(Sample, flag), 0x80, 0),
    defaulted("number", explicit_tag(0), Integer, DENCODER_FIELD(Sample, number), 0x40, 0),
    optional("text", implicit_tag(1), Ia5, DENCODER_FIELD(Sample, text)),
    optional("list", implicit_tag(2), NumberSet, DENCODER_FIELD(Sample, list), 0x20),
    optional("rest", Any, DENCODER_FIELD(Sample, rest)),
};
inline constexpr auto SampleType = sequence<Sample>("Sample", kSampleComponents);

inline constexpr Component kAlternatives[] = {
    required("text", T61, DENCODER_FIELD(Choice, u.text)),
    required("number", Integer, DENCODER_FIELD(Choice, u.number)),
    required("sample", explicit_tag(3), SampleType, DENCODER_FIELD(Choice, u.sample)),
};
inline constexpr auto ChoiceType = choice<Choice>("Choice", kAlternatives);

inline constexpr const Type *kPdus[] = {
    &Flag, &Integer, &Unsigned, &Big, &ShortBig,   &Bits,      &Octets,     &Oid,        &Printable,
    &Ia5,  &T61,     &When,     &Any, &SampleType, &NumberSet, &ChoiceType, &OctetsFile, &AnyFile,
};
static_assert(std::size(kPdus) == kPduCount);

inline void link_all(OssEnvironment *environment) {
    ossLinkBer(environment);
    ossLinkDer(environment);
    ossLinkConstraint(environment);
}

inline constexpr ControlTable kTable = {"test", link_all, kPdus};
} // namespace test_schema

class Runtime {
public:
    explicit Runtime(OssRules rules = OSS_DER,
                     const dencoder::ControlTable &table = test_schema::kTable)
        : block_(std::calloc(1, OSS_ENVIRONMENT_SIZE)) {
        if (!block_ || ossinit(get(), &table) != OSS_DONE)
            std::abort();
        ossSetEncodingRules(get(), rules);
    }
    ~Runtime() {
        ossterm(get());
        std::free(block_);
    }
    Runtime(const Runtime &) = delete;
    Runtime &operator=(const Runtime &) = delete;
    OssEnvironment *get() const { return static_cast<OssEnvironment *>(block_); }
    const char *message() const { return ossGetErrMsg(get()); }

    struct Free {
        OssEnvironment *environment = nullptr;
        int pdu = 0;
        void operator()(void *value) const { ossFreePDU(environment, pdu, value); }
    };
    template <class Record> using Value = std::unique_ptr<Record, Free>;

    template <class Record = void>
    Value<Record> decode(const Bytes &input, int pdu, OssStatus *status = nullptr) {
        static uint8_t nothing = 0;
        const OssBuf buffer = {static_cast<uint32_t>(input.size()),
                               input.empty() ? &nothing : const_cast<uint8_t *>(input.data())};
        return decode<Record>(buffer, pdu, status);
    }

    template <class Record = void>
    Value<Record> decode(const OssBuf &input, int pdu, OssStatus *status = nullptr) {
        void *value = nullptr;
        const OssStatus result = ossDecode(get(), &pdu, &input, &value);
        if (status != nullptr)
            *status = result;
        return {static_cast<Record *>(value), {get(), pdu}};
    }

    Bytes encode(const void *value, int pdu, OssStatus *status = nullptr) {
        OssBuf output = {0, nullptr};
        const OssStatus result = ossEncode(get(), pdu, value, &output);
        if (status != nullptr)
            *status = result;
        Bytes bytes(output.value, output.value + output.length);
        ossFreeBuf(get(), output.value);
        return bytes;
    }

private:
    void *block_;
};

#endif
