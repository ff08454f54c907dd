#include "diagnostics/DfuLogger.h"

#include <gtest/gtest.h>

#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <type_traits>

namespace {

// Opens what is meant for derived classes.
class Logger : public DfuLogger {
  public:
    Logger() = default;
    explicit Logger(std::ostream* stream) : DfuLogger(stream) {}

    using DfuLogger::LogFailure;
    using DfuLogger::LogLine;
    using DfuLogger::LogText;
};

// Keeps the text and marks each flush in it.
class FlushMarkingBuffer : public std::streambuf {
  public:
    [[nodiscard]] const std::string& Text() const { return text_; }

  protected:
    int_type overflow(int_type character) override {
        text_.push_back(traits_type::to_char_type(character));
        return character;
    }
    int sync() override {
        text_ += "<flush>";
        return 0;
    }

  private:
    std::string text_;
};

TEST(DfuLogger, WritesALineAndFlushesIt) {
    FlushMarkingBuffer buffer;
    std::ostream stream(&buffer);
    Logger(&stream).LogLine("Failed write registry value with status ", 5L);
    EXPECT_EQ(buffer.Text(), "Failed write registry value with status 5\n<flush>");
}

TEST(DfuLogger, WritesIntegersInSignedDecimal) {
    std::ostringstream stream;
    Logger(&stream).LogLine("a", -1, 'b', 255U, std::string("c"), -2147467259L);
    EXPECT_EQ(stream.str(), "a-1b255c-2147467259\n");
}

TEST(DfuLogger, WritesALineOfOneText) {
    std::ostringstream stream;
    Logger(&stream).LogLine("alone");
    EXPECT_EQ(stream.str(), "alone\n");
}

TEST(DfuLogger, WritesATextAsItStandsWithoutFlushing) {
    FlushMarkingBuffer buffer;
    std::ostream stream(&buffer);
    const Logger logger(&stream);
    logger.LogText("Failed open registry key with status ACCESS_DENIED\n");
    logger.LogText("no line end");
    EXPECT_EQ(buffer.Text(), "Failed open registry key with status ACCESS_DENIED\nno line end");
}

// No blank stands between "status" and the number.
TEST(DfuLogger, WritesAFailureWithTheStatusRightAfterTheText) {
    FlushMarkingBuffer buffer;
    std::ostream stream(&buffer);
    const Logger logger(&stream);
    logger.LogFailure("ToIdle()", static_cast<HRESULT>(0x80004005));
    logger.LogFailure("Step", 87);
    EXPECT_EQ(buffer.Text(),
              "ToIdle() Failed with status-2147467259\n<flush>Step Failed with status87\n<flush>");
}

TEST(DfuLogger, WritesNothingWithoutAStream) {
    const Logger logger(nullptr);
    logger.LogLine("line", 1);
    logger.LogText("text\n");
    logger.LogFailure("step", E_FAIL);
    EXPECT_EQ(logger.LogStream(), nullptr);
}

TEST(DfuLogger, HasNoStreamAtFirst) {
    EXPECT_EQ(Logger().LogStream(), nullptr);
}

TEST(DfuLogger, ChangesItsStream) {
    std::ostringstream first;
    std::ostringstream second;
    Logger logger(&first);
    EXPECT_EQ(logger.LogStream(), &first);
    logger.SetLogStream(&second);
    EXPECT_EQ(logger.LogStream(), &second);
    logger.LogLine("two");
    logger.SetLogStream(nullptr);
    logger.LogLine("three");
    EXPECT_EQ(first.str(), "");
    EXPECT_EQ(second.str(), "two\n");
}

TEST(DfuLogger, SharesItsStreamWithItsCopies) {
    std::ostringstream stream;
    const Logger logger(&stream);
    const Logger copy(logger);  // NOLINT(performance-unnecessary-copy-initialization): the copy is the test
    copy.LogLine("copied");
    EXPECT_EQ(stream.str(), "copied\n");
}

TEST(DfuLogger, HoldsOnePointerAndNothingElse) {
    EXPECT_EQ(sizeof(DfuLogger), 8U);
    EXPECT_FALSE(std::is_polymorphic_v<DfuLogger>);
}

}  // namespace
