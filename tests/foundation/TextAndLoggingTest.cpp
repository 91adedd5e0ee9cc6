#include "foundation/qelArray.h"
#include "foundation/qelAssert.h"
#include "foundation/qelLog.h"
#include "foundation/qelString.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace {

QEL_DEFINE_UNIT_LOGGER("test.logging")

using qel::String;
using Priority = qel::LoggerPriority;

std::vector<std::string> pieces(const char* text, const char* separators) {
    std::vector<std::string> out;
    for (const String& piece : String(text).tokenize(String(separators))) {
        out.push_back(piece.toStdString());
    }
    return out;
}

TEST(String, CompareNoCaseIgnoresCaseButOrdersText) {
    EXPECT_EQ(String("Speakers").compareNoCase(String("SPEAKERS")), 0);
    EXPECT_NE(String("Speakers"), String("SPEAKERS"));
    EXPECT_LT(String("abc").compareNoCase(String("ABD")), 0);
    EXPECT_GT(String::compareNoCase(String("line in"), String("LINE")), 0);
    EXPECT_EQ(String("\xC3\x84RGER").compareNoCase(String("\xC3\xA4rger")), 0); // Ä, ä
}

TEST(String, TokenizeDropsEmptyPiecesAndTrimWorksInPlace) {
    EXPECT_EQ(pieces(",a,,b c,", ", "), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(pieces("whole", ","), (std::vector<std::string>{"whole"}));
    EXPECT_TRUE(pieces("", ",").empty());
    EXPECT_TRUE(pieces(",,,", ",").empty());

    String text(" \t Line In \r\n");
    EXPECT_EQ(&text.trim(), &text);
    EXPECT_EQ(text, String("Line In"));
    String blank(" \t\n");
    EXPECT_TRUE(blank.trim().empty());
}

TEST(String, Utf8RoundTripsThroughUcs2) {
    const char* text = "Gr\xC3\xBC\xC3\x9F"
                       "e \xE2\x82\xAC \xF0\x9D\x84\x9E!"; // ü ß € and a clef
    String s(text);
    ASSERT_EQ(s.length(), 11u); // the clef needs a surrogate pair
    EXPECT_EQ(s[8], 0xD834);
    EXPECT_EQ(s[9], 0xDD1E);
    EXPECT_EQ(std::string(s.getUTF8String()), text);
    const unsigned short* units = s.getUCS2Buffer();
    EXPECT_EQ(units[s.length()], 0);
    EXPECT_EQ(String(units), s);
}

TEST(String, MalformedUtf8BecomesReplacementCharacters) {
    // Bytes that never start a sequence, a code point beyond U+10FFFF and an encoded
    // surrogate must not turn into other characters or into broken surrogate pairs.
    for (const char* bad : {"\xF8\x88\x80\x80", "\xFF", "\xF4\x90\x80\x80", "\xED\xA0\x80"}) {
        String s(bad);
        ASSERT_FALSE(s.empty());
        for (qel::Uint32 i = 0; i < s.length(); ++i) {
            EXPECT_EQ(s[i], 0xFFFD) << "unit " << i << " of " << bad;
        }
    }
}

TEST(String, StrToBooleanReadsSettingWords) {
    for (const char* yes : {"1", "true", "TRUE", "Yes", "on"}) {
        EXPECT_TRUE(String::strToBoolean(String(yes))) << yes;
    }
    for (const char* no : {"0", "false", "no", "off", "", "truth"}) {
        EXPECT_FALSE(String::strToBoolean(String(no))) << no;
    }
}

// Out-of-range uses fail loudly with the condition's text and leave a fatal log record.
TEST(Array, CheckedConditionsRaiseAndLogTheirText) {
    testsupport::LogCapture log;
    qel::Array<unsigned int> numbers;
    numbers.append(7u);
    const qel::Array<unsigned int>& readOnly = numbers;
    auto expressionOf = [](auto&& action) {
        try {
            action();
        } catch (const qel::AssertionException& failure) {
            return failure.expression();
        }
        return std::string("no assertion");
    };
    EXPECT_EQ(expressionOf([&] { (void)numbers[1]; }), "index < size()");
    EXPECT_EQ(expressionOf([&] { (void)readOnly[5]; }), "index < size()");
    EXPECT_EQ(expressionOf([&] { numbers.remove(0, 3); }), "lastRemovedIndex <= sz + 1");
    EXPECT_EQ(expressionOf([] { qel::Array<String> huge(0x10000000u); }),
              "initialCapacity <= (Uint32(0xffffffffU)-sizeof(ArrayRep<T>))/sizeof(T)");
    int logged = 0;
    for (const auto& record : log.records()) {
        logged += record.priority == Priority::PRIORITY_FATAL &&
                  record.text.find("index < size()") != std::string::npos;
    }
    EXPECT_EQ(logged, 2);
}

// Stands in for the platform's exception dispatch while a test runs: each raise is
// recorded with the number of fatal records logged before it, then a handler either lets
// execution continue (the raise returns) or unwinds.
class StructuredRaiseProbe {
public:
    explicit StructuredRaiseProbe(const testsupport::LogCapture& log, bool unwind = false) {
        s_log = &log;
        s_unwind = unwind;
        s_raised.clear();
        m_previous = qel::AssertionFailure::setStructuredRaise(&StructuredRaiseProbe::raise);
    }
    ~StructuredRaiseProbe() { qel::AssertionFailure::setStructuredRaise(m_previous); }
    // Each raise as its code and the fatal records logged by then.
    static std::vector<std::pair<std::uint32_t, int>> raised() { return s_raised; }

private:
    struct Unwound {};
    static void raise(std::uint32_t code) {
        int fatal = 0;
        for (const auto& record : s_log->records()) {
            fatal += record.priority == Priority::PRIORITY_FATAL;
        }
        s_raised.emplace_back(code, fatal);
        if (s_unwind) {
            throw Unwound{};
        }
    }
    static inline const testsupport::LogCapture* s_log = nullptr;
    static inline bool s_unwind = false;
    static inline std::vector<std::pair<std::uint32_t, int>> s_raised;
    qel::AssertionFailure::StructuredRaise m_previous;
};

// On Windows a handler may continue after exception 7: the code then goes on as if the check
// had passed, and what it reads out of range is a default element, never foreign memory.
TEST(Assertion, ContinuedRaiseGoesOnAfterTheCheck) {
    testsupport::LogCapture log;
    StructuredRaiseProbe probe(log);
    qel::Array<unsigned int> numbers;
    numbers.append(7u);
    const qel::Array<unsigned int>& readOnly = numbers;
    int after = 0;
    QEL_ASSERT(numbers.size() == 2);
    ++after;
    EXPECT_EQ(after, 1);
    EXPECT_EQ(numbers[1], 0u);
    numbers[3] = 99u; // lands in the stand-in element, not beyond the array
    EXPECT_EQ(readOnly[3], 0u);
    numbers.remove(1, 5); // clamped to the array
    EXPECT_EQ(qel::Array<String>(0x10000000u).size(), 0u);
    ASSERT_EQ(numbers.size(), 1u);
    EXPECT_EQ(numbers[0], 7u);
    // One raise of code 7 per failed check, each after its fatal record.
    std::vector<std::pair<std::uint32_t, int>> expected;
    for (int failure = 1; failure <= 6; ++failure) {
        expected.emplace_back(7u, failure);
    }
    EXPECT_EQ(StructuredRaiseProbe::raised(), expected);
}

TEST(Assertion, UnwindingRaiseLeavesTheCheckAndNoRaiseThrowsTheLibrarysException) {
    testsupport::LogCapture log;
    bool after = false;
    {
        StructuredRaiseProbe probe(log, true);
        EXPECT_ANY_THROW({
            QEL_ASSERT(after);
            after = true;
        });
        EXPECT_EQ(StructuredRaiseProbe::raised().size(), 1u);
    }
    EXPECT_FALSE(after);
    // Without a structured raise, the default here, the library's own exception.
    qel::AssertionFailure::StructuredRaise previous =
        qel::AssertionFailure::setStructuredRaise(nullptr);
    EXPECT_EQ(previous, nullptr);
    const unsigned line = __LINE__ + 2;
    try {
        QEL_ASSERT(after);
        ADD_FAILURE() << "no exception";
    } catch (const qel::AssertionException& failure) {
        EXPECT_EQ(failure.expression(), "after");
        EXPECT_EQ(failure.line(), line);
    }
}

// Restores the unit logger's threshold, which lives as long as the process.
struct ThresholdGuard {
    explicit ThresholdGuard(int threshold) { unitLogger()->setThreshold(threshold); }
    ~ThresholdGuard() { unitLogger()->setThreshold(0); }
};

TEST(Logging, MessagesStartWithTheLineOfTheStatement) {
    testsupport::LogCapture log;
    const int line = __LINE__ + 1;
    QEL_INFO("Header Size ", 44u, " of ", String("Lautsprecher \xC3\xA4"));
    EXPECT_TRUE(log.has("test.logging", Priority::PRIORITY_INFO,
                        std::to_string(line) + " Header Size 44 of Lautsprecher \xC3\xA4"));
    qel::Logger* same = nullptr;
    ASSERT_TRUE(qel::LogFactory::createLogger("test.logging", same));
    EXPECT_EQ(same, unitLogger());
}

TEST(Logging, FactoryPriorityAndLoggerThresholdFilter) {
    {
        testsupport::LogCapture log(Priority::PRIORITY_ERROR);
        QEL_INFO("hidden");
        QEL_ERROR("shown");
        EXPECT_FALSE(unitLogger()->log(Priority::PRIORITY_DEBUG, qel::LoggerStream()));
        EXPECT_EQ(log.records().size(), 1u);
    }
    testsupport::LogCapture log(Priority::PRIORITY_DEBUG);
    ThresholdGuard guard(Priority::PRIORITY_ERROR);
    EXPECT_EQ(unitLogger()->resolvePriority(), Priority::PRIORITY_ERROR);
    QEL_DEBUG("hidden");
    QEL_INFO("hidden");
    QEL_ERROR("shown");
    ASSERT_EQ(log.records().size(), 1u);
    EXPECT_EQ(log.records()[0].priority, Priority::PRIORITY_ERROR);
}

TEST(Logging, TraceScopesAreLoggedOnlyAtDebug) {
    {
        testsupport::LogCapture log(Priority::PRIORITY_DEBUG);
        const std::string line = std::to_string(__LINE__ + 2);
        {
            QEL_TRACE_SCOPE("Scope::work");
            QEL_DEBUG("inside");
        }
        std::vector<std::string> texts = log.texts("test.logging", Priority::PRIORITY_DEBUG);
        ASSERT_EQ(texts.size(), 3u);
        EXPECT_EQ(texts[0].rfind(line + " ", 0), 0u);
        EXPECT_NE(texts[0].find("Scope::work"), std::string::npos);
        EXPECT_NE(texts[1].find("inside"), std::string::npos);
        EXPECT_NE(texts[2].find("Scope::work"), std::string::npos);
        EXPECT_NE(texts[0], texts[2]); // entry and exit are told apart
    }
    {
        testsupport::LogCapture log(Priority::PRIORITY_INFO);
        { QEL_TRACE_SCOPE("Scope::quiet"); }
        EXPECT_TRUE(log.records().empty());
    }
    testsupport::LogCapture log(Priority::PRIORITY_DEBUG);
    ThresholdGuard guard(Priority::PRIORITY_INFO);
    EXPECT_EQ(qel::traceLogger(unitLogger()), nullptr);
}

} // namespace
