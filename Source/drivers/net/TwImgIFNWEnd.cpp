// The end of a network page: the notice that says whether another page follows.
#include "vox/DSDebugging.h"
#include "vox/drivers/net/ScanNotice.h"
#include "vox/drivers/net/TwImgIFNW.h"

namespace vox {
namespace {

constexpr std::uint8_t END_NOTICE_TAKEN = 0x00;

}  // namespace

bool CTwImgIFNW::DeviceEndScan() {
  stop_data();
  const bool ok = is_aborted() || exchange_end_notice();
  close_channel(&end_sock);
  m_semaphore.Up();
  return ok;
}

bool CTwImgIFNW::exchange_end_notice() {
  END_STATE state = END_AGAIN;
  while (state == END_AGAIN && !is_aborted()) state = take_end_notice();
  if (is_aborted()) return true;
  // A page whose data broke off is not a good page, though its notice came.
  if (state == END_FAILED || m_bDataBroke) SetIfErrorStatus(IF_ERR_STS_DEVICE_COMM_ERR);
  if (state == END_FAILED && !multipage) ClearJobId();
  return state == END_DONE;
}

CTwImgIFNW::END_STATE CTwImgIFNW::take_end_notice() {
  std::uint8_t command = 0;
  if (!read_end_notice(end_sock, m_waits.nFirstData, m_waits.nData, abort_wake(), &command)) {
    DS_LogText("%s:%d: Error \n", __func__, __LINE__);
    return END_FAILED;
  }
  if (command == END_NOTICE_NOT_YET) return go_on_waiting();
  if (command == END_NOTICE_NEXT_PAGE) {
    multipage = 1;
  } else {
    multipage = 0;
    ClearJobId();
  }
  return write_channel(end_sock, &END_NOTICE_TAKEN, sizeof END_NOTICE_TAKEN) ? END_DONE
                                                                             : END_FAILED;
}

CTwImgIFNW::END_STATE CTwImgIFNW::go_on_waiting() {
  const bool answered = write_channel(end_sock, &END_NOTICE_TAKEN, sizeof END_NOTICE_TAKEN);
  close_channel(&end_sock);
  return answered && open_end_channel() ? END_AGAIN : END_FAILED;
}

}  // namespace vox
