// Each thing that can go wrong, and the status that a frontend is told.
#include "frontends/sane/Status.h"

#include <string>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "vox/drivers/ScanRecords.h"

namespace vox::sane {
namespace {

TEST(SaneStatus, OfAPage) {
  struct Row {
    std::uint32_t status;
    SANE_Status flatbed, feeder;
  };
  const Row rows[] = {
      {IF_ERR_STS_NONE, SANE_STATUS_IO_ERROR, SANE_STATUS_IO_ERROR},
      {IF_ERR_STS_INTERNAL, SANE_STATUS_NO_MEM, SANE_STATUS_NO_MEM},
      {IF_ERR_STS_MEMORY, SANE_STATUS_NO_MEM, SANE_STATUS_NO_MEM},
      {IF_ERR_STS_DEVICE_COMM_ERR, SANE_STATUS_IO_ERROR, SANE_STATUS_IO_ERROR},
      {IF_ERR_STS_DEVICE_BUSY, SANE_STATUS_DEVICE_BUSY, SANE_STATUS_DEVICE_BUSY},
      {IF_ERR_STS_DEVICE_ERROR, SANE_STATUS_IO_ERROR, SANE_STATUS_IO_ERROR},
      {IF_ERR_STS_DEVICE_CANCEL, SANE_STATUS_CANCELLED, SANE_STATUS_CANCELLED},
      {IF_ERR_STS_CHECK_ERROR, SANE_STATUS_IO_ERROR, SANE_STATUS_JAMMED},
      {IF_ERR_STS_NO_DOCUMENT, SANE_STATUS_NO_DOCS, SANE_STATUS_NO_DOCS},
      {9, SANE_STATUS_IO_ERROR, SANE_STATUS_IO_ERROR},
      {0xFFFFFFFF, SANE_STATUS_IO_ERROR, SANE_STATUS_IO_ERROR},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(StatusOfScan(row.status, false), row.flatbed) << row.status;
    EXPECT_EQ(StatusOfScan(row.status, true), row.feeder) << row.status;
  }
}

TEST(SaneStatus, OfSharedCode) {
  using cli::ExitStatus;
  using cli::Failure;
  EXPECT_EQ(StatusOf(Failure(ExitStatus::kCancelled, "")), SANE_STATUS_CANCELLED);
  EXPECT_EQ(StatusOf(Failure(ExitStatus::kBusy, "")), SANE_STATUS_DEVICE_BUSY);
  EXPECT_EQ(StatusOf(Failure(ExitStatus::kCannot, "")), SANE_STATUS_INVAL);
  EXPECT_EQ(StatusOf(Failure(ExitStatus::kNoDocument, "")), SANE_STATUS_NO_DOCS);
  EXPECT_EQ(StatusOf(Failure(ExitStatus::kIoError, "")), SANE_STATUS_IO_ERROR);
  EXPECT_EQ(StatusOf(Failure(ExitStatus::kNoMemory, "")), SANE_STATUS_NO_MEM);
  EXPECT_EQ(StatusOf(Failure(ExitStatus::kNoPermission, "")), SANE_STATUS_ACCESS_DENIED);
  EXPECT_EQ(StatusOf(cli::UsageFailure("")), SANE_STATUS_INVAL);
  EXPECT_EQ(StatusOf(Failure(ExitStatus::kDone, "")), SANE_STATUS_INVAL) << "never GOOD";
}

// Scripts compare libsane's texts.
TEST(SaneStatus, TextsAreThoseOfLibsane) {
  void* const libsane = ::dlopen("libsane.so.1", RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(libsane, nullptr) << ::dlerror();
  const auto text =
      reinterpret_cast<SANE_String_Const (*)(SANE_Status)>(::dlsym(libsane, "sane_strstatus"));
  ASSERT_NE(text, nullptr);
  for (int status = SANE_STATUS_GOOD; status <= SANE_STATUS_ACCESS_DENIED; ++status)
    EXPECT_STREQ(StatusText(status), text(static_cast<SANE_Status>(status)));
  EXPECT_STRNE(StatusText(12), "");
  EXPECT_STRNE(StatusText(-1), "");
  ::dlclose(libsane);
}

}  // namespace
}  // namespace vox::sane
