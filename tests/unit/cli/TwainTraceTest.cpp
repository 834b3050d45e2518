// The TWAIN operations that a scan is written down as.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tools/vox/Json.h"
#include "tools/vox/TwainTrace.h"

namespace vox::cli::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// "1/3/1025" is group, attribute and message; "=6" a result, ",29" a condition, "[257]" a
// capability.
class TwainTraceTest : public testing::Test {
 protected:
  TwainTrace::Sink Sink() {
    return [this](const std::string& line) {
      const Json json = Json::parse(line);
      std::ostringstream text;
      text << json["group"] << '/' << json["attribute"] << '/' << json["message"];
      if (json.contains("capability")) text << '[' << json["capability"] << ']';
      if (json["result"] != 0) text << '=' << json["result"];
      if (json["condition"] != 0) text << ',' << json["condition"];
      told_.push_back(text.str());
    };
  }
  static ScanPlan Plan(std::uint32_t line_size = 1) {
    ScanPlan plan;
    plan.request.dwLineSize = line_size;
    plan.request.wBitsPerPixel = 8;
    return plan;
  }
  std::vector<std::string> Told() { return std::exchange(told_, {}); }

 private:
  std::vector<std::string> told_;
};

TEST_F(TwainTraceTest, APageIsOpenedSetTransferredAndClosed) {
  testing::internal::CaptureStderr();
  TwainTrace trace(true, Sink());
  trace.Begin(Plan());
  EXPECT_THAT(Told(), ElementsAre("1/3/1025", "1/1/6[1]", "1/1/6[259]", "1/1/6[258]", "1/1/6[257]",
                                  "1/1/6[4395]", "1/1/6[4376]", "1/1/6[4377]", "1/1/6[4353]",
                                  "1/1/6[4355]", "2/258/6", "1/9/1282"));
  trace.Page();
  trace.Lines(1, true);
  trace.EndPage();
  EXPECT_THAT(Told(), ElementsAre("2/257/1", "1/6/1", "2/259/1=6", "1/5/1793"));
  trace.End();
  trace.End();
  EXPECT_THAT(Told(), ElementsAre("1/9/1281", "1/3/1026"));
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_THAT(text, HasSubstr("   message :  [0x0401]"));
  EXPECT_THAT(text, HasSubstr("    result :  [6]"));
  EXPECT_THAT(text, testing::EndsWith(std::string(80, '-') + "\n"));
}

TEST_F(TwainTraceTest, LinesAreHandedOverInStripsOfAMebibyte) {
  testing::internal::CaptureStderr();
  TwainTrace trace(true, Sink());
  trace.Begin(Plan(1U << 19));
  trace.Page();
  Told();
  for (std::uint32_t line = 1; line <= 5; ++line) trace.Lines(line, line == 5);
  EXPECT_THAT(Told(), ElementsAre("2/259/1", "2/259/1", "2/259/1=6"));
  testing::internal::GetCapturedStderr();
}

TEST_F(TwainTraceTest, AFailureSaysWhyAndThePagesThatWaitAreDropped) {
  testing::internal::CaptureStderr();
  {
    TwainTrace trace(true, Sink());
    trace.Begin(Plan());
    trace.Page();
    Told();
    trace.Fail(8);
  }
  EXPECT_THAT(Told(), ElementsAre("2/259/1=1,29", "1/5/7", "1/9/1281", "1/3/1026"));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(" Condition :  [29]"));
}

TEST_F(TwainTraceTest, EveryInterfaceStatusHasACondition) {
  const int conditions[] = {1, 1, 2, 23, 16, 5, 1, 5, 29, 1};
  for (std::uint32_t status = 0; status < 10; ++status) {
    testing::internal::CaptureStderr();
    TwainTrace trace(true, Sink());
    trace.Begin(Plan());
    Told();
    trace.Fail(status);
    EXPECT_THAT(Told(), ElementsAre("2/259/1=1," + std::to_string(conditions[status])));
    trace.End();
    testing::internal::GetCapturedStderr();
    Told();
  }
}

TEST_F(TwainTraceTest, OffItWritesNothing) {
  testing::internal::CaptureStderr();
  {
    TwainTrace trace(false, Sink());
    trace.Begin(Plan());
    trace.Page();
    trace.Lines(1, true);
    trace.Fail(3);
  }
  EXPECT_THAT(Told(), IsEmpty());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace vox::cli::test
