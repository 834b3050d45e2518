#include "vox/drivers/JbigBuf.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "vox/platform/Bytes.h"

namespace vox {
namespace {

// The decoder's contexts and the line of any image fit into this.
constexpr std::size_t kLeastScratch = 8448;
// The last line of a bitmap may end one byte behind it.
constexpr std::size_t kBitmapMargin = 8;

void report_exception(const char* where) {
  std::fprintf(stderr, "%s: exception\n", where);
}

// The header where a block begins, which need not be aligned.
tagJBIGSCANDATAHEADER header_at(const BYTE* block) {
  tagJBIGSCANDATAHEADER header;
  std::memcpy(&header, block, sizeof header);
  return header;
}

// True for the start of an image header (T.82 6.2.4) of a one-plane, one-layer image of that width.
bool is_image_header(const BYTE* data, DWORD size, WORD width) {
  return size >= kBihSize && LoadBe32(data) == 0x00000100 && LoadBe32(data + 4) == width;
}

}  // namespace

WORD* JbigAlloc(WORD wdSize) {
  void* buffer = std::calloc(std::max(sizeof(WORD) * wdSize, kLeastScratch), 1);
  if (!buffer) report_exception("JbigAlloc");
  return static_cast<WORD*>(buffer);
}

void JbigFree(void* pBuf) {
  std::free(pBuf);
}

CJbigTmpBuf::CJbigTmpBuf(WORD ImageWidth)
    : m_lpABuff(JbigAlloc(static_cast<WORD>(ImageWidth + 5))),
      m_lpBBuff(JbigAlloc(static_cast<WORD>(ImageWidth + 5))),
      m_lpContextBuff(JbigAlloc(kContexts)) {}

CJbigTmpBuf::~CJbigTmpBuf() {
  JbigFree(m_lpABuff);
  JbigFree(m_lpBBuff);
  JbigFree(m_lpContextBuff);
}

CImageDataCtrl::~CImageDataCtrl() {
  JbigFree(m_lpData);
}

bool CImageDataCtrl::Alloc(ULONG ulSize) {
  if (m_lpData) return false;
  m_lpData = static_cast<LPBYTE>(std::calloc(ulSize + kBitmapMargin, 1));
  if (!m_lpData) {
    report_exception("CImageDataCtrl");
    return false;
  }
  m_ReadPtr = 0;
  m_dwSize = ulSize;
  return true;
}

void CImageDataCtrl::Remove() {
  JbigFree(m_lpData);
  m_lpData = nullptr;
  m_dwSize = 0;
  m_ReadPtr = 0;
}

DWORD CImageDataCtrl::SetImageData(LPBYTE pBuf, DWORD dwLen) {
  if (!pBuf || m_dwSize <= m_ReadPtr) {
    Remove();
    return 0;
  }
  const DWORD remain = m_dwSize - m_ReadPtr;
  const DWORD length = std::min(remain, dwLen);
  std::memcpy(pBuf, m_lpData + m_ReadPtr, length);
  m_ReadPtr += length;
  if (remain <= dwLen) Remove();
  return length;
}

CJbigDataCtrl::~CJbigDataCtrl() {
  JbigFree(m_lpJbigData);
  delete m_pImageData;
}

bool CJbigDataCtrl::AllocImageData() {
  if (m_pImageData) return false;
  m_pImageData = new (std::nothrow) CImageDataCtrl;
  if (!m_pImageData) report_exception("CJbigDataCtrl");
  return m_pImageData != nullptr;
}

void CJbigDataCtrl::SetJbigParam(BYTE byJbigLineTemplate, BYTE byJbigTpbTemplate,
                                 BYTE byHeaderSize) {
  m_byJbigLineTemplate = byJbigLineTemplate;
  m_byJbigTpbTemplate = byJbigTpbTemplate;
  m_byHeaderSize = byHeaderSize;
}

// The first header is accepted as it is: it defines what later ones must match.
bool CJbigDataCtrl::IsAvailHeader(const tagJBIGSCANDATAHEADER* pHeader) {
  if (m_bFirstHeader) {
    m_JbigDataHeaderBackup = *pHeader;
    m_bFirstHeader = 0;
    return true;
  }
  return pHeader->wdWidth == m_JbigDataHeaderBackup.wdWidth &&
         pHeader->wdLength <= m_JbigDataHeaderBackup.wdLength &&
         std::uint64_t{pHeader->dwLength} + m_byHeaderSize <= m_dwMemorySize;
}

// Positions with less than a header's bytes behind them do not match.
int CJbigDataCtrl::SearchNextHeader(const BYTE* pData, int nDataSize) const {
  constexpr int kHeader = sizeof(tagJBIGSCANDATAHEADER);
  if (nDataSize < 1) return 0;
  for (int i = 0; i + kHeader <= nDataSize; ++i) {
    const tagJBIGSCANDATAHEADER header = header_at(pData + i);
    if (header.wdWidth == m_JbigDataHeaderBackup.wdWidth &&
        header.wdLength <= m_JbigDataHeaderBackup.wdLength && header.dwLength <= m_dwMemorySize)
      return i;
  }
  return nDataSize;
}

// What has been gathered of a header; zeros where the caller's buffer ends before it does.
tagJBIGSCANDATAHEADER CJbigDataCtrl::gathered_header() const {
  tagJBIGSCANDATAHEADER header{};
  std::memcpy(&header, m_lpJbigData, std::min<std::size_t>(sizeof header, m_dwMemorySize));
  return header;
}

// Counts bytes as gathered. They are stored only where the whole of `needed` bytes has room.
void CJbigDataCtrl::gather(const BYTE* from, DWORD length, std::uint64_t needed) {
  if (needed <= m_dwMemorySize) std::memcpy(m_lpJbigData + m_WritePtr, from, length);
  const std::uint64_t sum = std::uint64_t{m_WritePtr} + length;
  m_WritePtr = static_cast<DWORD>(std::min<std::uint64_t>(sum, 0xFFFFFFFF));
}

DWORD CJbigDataCtrl::CopyJbigData(BYTE* pData, unsigned int dwDataSize) {
  if (!pData || !m_lpJbigData) return 0;
  DWORD consumed = 0;
  if (m_byHeaderSize > std::uint64_t{m_WritePtr} + 1) {
    consumed = std::min<DWORD>(dwDataSize, m_byHeaderSize - m_WritePtr);
    gather(pData, consumed, m_WritePtr + consumed);
  }
  const DWORD left = dwDataSize - consumed;
  if (left == 0) return consumed;
  const tagJBIGSCANDATAHEADER header = gathered_header();
  if (!IsAvailHeader(&header)) {
    m_WritePtr = 0;
    const int size = static_cast<int>(std::min<DWORD>(left, INT32_MAX));
    return consumed + static_cast<DWORD>(SearchNextHeader(pData + consumed, size));
  }
  const std::uint64_t total = std::uint64_t{m_byHeaderSize} + header.dwLength;
  if (total <= m_WritePtr) return consumed;
  const auto length = static_cast<DWORD>(std::min<std::uint64_t>(left, total - m_WritePtr));
  gather(pData, length, total);  // from the piece's first byte, also behind a header
  return consumed + length;
}

bool CJbigDataCtrl::IsAvail() const {
  if (!m_lpJbigData || m_byHeaderSize > m_WritePtr) return false;
  return std::uint64_t{m_byHeaderSize} + gathered_header().dwLength <= m_WritePtr;
}

void CJbigDataCtrl::SetCodecParameter(CODECCSTR* pCodec, BYTE* pCBuff, BYTE* pIBuff,
                                      const tagJBIGSCANDATAHEADER* pHeader,
                                      const CJbigTmpBuf* pTmpBuf) const {
  if (!pCodec || !pHeader || !pTmpBuf) return;
  *pCodec = CODECCSTR{};
  pCodec->Mode = 1;
  pCodec->lpCBuff = pCBuff;
  pCodec->szCBuff = pHeader->dwLength;
  pCodec->lpIBuff = pIBuff;
  pCodec->PitchIBuff = pHeader->wdWidth;
  pCodec->HeightIBuff = pHeader->wdLength;
  pCodec->ImageWidth = pHeader->wdWidth;
  pCodec->ImageHeight = pHeader->wdLength;
  pCodec->lpABuff = pTmpBuf->GetABuff();
  pCodec->lpBBuff = pTmpBuf->GetBBuff();
  pCodec->ContextBuff = pTmpBuf->GetContextBuff();
  pCodec->Tpv = m_byJbigLineTemplate;
  pCodec->Tpb = m_byJbigTpbTemplate;
  pCodec->Strip = pHeader->wdLength;
}

// Decodes the block into the bitmap. Some devices count an image header as data, others as a part
// of the block's header: it is skipped where it is.
int CJbigDataCtrl::decode(const tagJBIGSCANDATAHEADER& header) const {
  const CJbigTmpBuf scratch(header.wdWidth);
  if (!scratch.GetABuff() || !scratch.GetBBuff() || !scratch.GetContextBuff())
    return CODEC_BAD_PARAM;
  CODECCSTR codec;
  BYTE* data = m_lpJbigData + m_byHeaderSize;
  SetCodecParameter(&codec, data, m_pImageData->GetDataPtr(), &header, &scratch);
  if (is_image_header(data, header.dwLength, header.wdWidth)) {
    codec.lpCBuff += kBihSize;
    codec.szCBuff -= kBihSize;
  }
  return DECOMPRESS(&codec);
}

// A block in a streaming caller's buffer must lie in it; a receiver that sets no memory size hands
// over whole blocks.
bool CJbigDataCtrl::is_whole(const tagJBIGSCANDATAHEADER& header) const {
  return m_dwMemorySize == 0 || std::uint64_t{m_byHeaderSize} + header.dwLength <= m_dwMemorySize;
}

bool CJbigDataCtrl::Decompress() {
  if (!m_lpJbigData || !m_pImageData) return false;
  const tagJBIGSCANDATAHEADER header =
      m_dwMemorySize == 0 ? header_at(m_lpJbigData) : gathered_header();
  const auto pixels = static_cast<std::int32_t>(std::uint32_t{header.wdWidth} * header.wdLength);
  if (pixels < 0 || !m_pImageData->Alloc(static_cast<ULONG>(pixels) / 8)) return false;
  const int status = is_whole(header) ? decode(header) : CODEC_DATA_ERROR;
  // An image of less than a byte leaves nothing to drain: the next block must find room at once.
  if (status != CODEC_DONE || m_pImageData->IsEmpty()) m_pImageData->Remove();
  m_WritePtr = 0;
  return status == CODEC_DONE;
}

}  // namespace vox
