// The blocks of a network scan and what becomes of them: CJbigDataCtrl holds one block and decodes
// it, CImageDataCtrl holds the decoded bitmap and hands it out in pieces, CJbigTmpBuf owns the
// decoder's scratch buffers. The bytes of a block are drawn in docs/wire/jbig-block.md.
//
// Thread: none inside; one CJbigDataCtrl is used by the one thread that reads scan data.
// Failures: returned; nothing is thrown. Failed allocations leave a line "<name>: exception" on
// standard error.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vox/drivers/ScanRecords.h"
#include "vox/drivers/libjbig3/codec32s.h"
#include "vox/platform/Export.h"

namespace vox {

// The header of a block. Little-endian on the wire; here in host order.
struct tagJBIGSCANDATAHEADER {
  WORD wdWidth;    // pixels of a line
  WORD wdLength;   // lines in this block
  DWORD dwLength;  // bytes of JBIG data behind the header
};
static_assert(sizeof(tagJBIGSCANDATAHEADER) == 8);
static_assert(offsetof(tagJBIGSCANDATAHEADER, wdLength) == 2);
static_assert(offsetof(tagJBIGSCANDATAHEADER, dwLength) == 4);

// A node of a receiver's list of blocks.
struct tagJBIGSCANDATA {
  BYTE* pData;            // header and data
  tagJBIGSCANDATA* next;  // null: the last one
};

// JbigAlloc returns a zeroed array of wdSize words, of 8,448 bytes at least: enough for a line of
// any width, and for the contexts. Null when there is no memory.
VOX_EXPORT WORD* JbigAlloc(WORD wdSize);

// JbigFree releases what JbigAlloc, malloc or calloc gave; null is allowed.
VOX_EXPORT void JbigFree(void* pBuf);

class VOX_EXPORT CJbigTmpBuf {
 public:
  CJbigTmpBuf() = default;
  // Two line buffers of (ImageWidth + 5) modulo 65536 words and one of 1024 contexts; one that
  // cannot be had stays null.
  explicit CJbigTmpBuf(WORD ImageWidth);
  virtual ~CJbigTmpBuf();
  CJbigTmpBuf(const CJbigTmpBuf&) = delete;
  CJbigTmpBuf& operator=(const CJbigTmpBuf&) = delete;

  WORD* GetABuff() const { return m_lpABuff; }
  WORD* GetBBuff() const { return m_lpBBuff; }
  WORD* GetContextBuff() const { return m_lpContextBuff; }

 private:
  WORD* m_lpABuff = nullptr;
  WORD* m_lpBBuff = nullptr;
  WORD* m_lpContextBuff = nullptr;
};

class VOX_EXPORT CImageDataCtrl {
 public:
  CImageDataCtrl() = default;
  virtual ~CImageDataCtrl();
  CImageDataCtrl(const CImageDataCtrl&) = delete;
  CImageDataCtrl& operator=(const CImageDataCtrl&) = delete;

  bool IsEmpty() const { return m_dwSize == 0; }

  // Alloc makes a bitmap of ulSize zero bytes, with 8 more behind them that are not part of it.
  // Returns: false when a bitmap is still there (it stays) or memory is short.
  bool Alloc(ULONG ulSize);
  void Remove();
  LPBYTE GetDataPtr() const { return m_lpData; }

  // SetImageData copies up to dwLen bytes, from where the last call ended, to pBuf; the last byte,
  // a null pBuf and a request with nothing left empty the object.
  // Returns: bytes copied.
  DWORD SetImageData(LPBYTE pBuf, DWORD dwLen);

 private:
  LPBYTE m_lpData = nullptr;  // owned
  DWORD m_ReadPtr = 0;        // bytes handed out
  DWORD m_dwSize = 0;         // bytes of the bitmap; 0 empty
};

class VOX_EXPORT CJbigDataCtrl {
 public:
  CJbigDataCtrl() = default;
  virtual ~CJbigDataCtrl();
  CJbigDataCtrl(const CJbigDataCtrl&) = delete;
  CJbigDataCtrl& operator=(const CJbigDataCtrl&) = delete;

  // AllocImageData makes the (empty) bitmap object; false when it exists.
  bool AllocImageData();

  // Template lines (2 or 3), typical prediction (0 or 1) and bytes from a block's start to its JBIG
  // data, as the device reports them.
  void SetJbigParam(BYTE byJbigLineTemplate, BYTE byJbigTpbTemplate, BYTE byHeaderSize);

  // Decompress decodes the block at m_lpJbigData into the bitmap. JBIG data that begins with an
  // image header of the block's width is decoded behind it. Without a memory size the block must be
  // whole: dwLength bytes behind its header are read.
  // Returns: false, and an empty bitmap, when the data is bad; false, and the bitmap as it was,
  // when one is still there.
  bool Decompress();
  CImageDataCtrl* GetImageDataCtrl() const { return m_pImageData; }

  // The streaming path: a block that arrives in pieces is gathered in the caller's buffer at
  // m_lpJbigData, whose capacity SetMemorySize tells.
  void SetMemorySize(DWORD dwMemorySize) { m_dwMemorySize = dwMemorySize; }
  // CopyJbigData gathers from pData[0, dwDataSize), one block's bytes at a time. Hand header and
  // data over in pieces of their own: where a piece holds two bytes or more of the header and data
  // behind it, the data are stored from the piece's first byte on.
  // The first header is accepted as it is. Later ones must have its width, no more lines, and a
  // length for which there is room; else what was gathered is forgotten, and the input consumed up
  // to the next header that fits. What has no room is counted, but not stored.
  // Returns: input bytes consumed.
  DWORD CopyJbigData(BYTE* pData, unsigned int dwDataSize);
  bool IsAvail() const;  // a whole block has been gathered
  void ResetData() { m_WritePtr = 0; }

  // The current block, header first. Whatever is here at destruction is released with JbigFree: who
  // keeps blocks elsewhere sets null when a block goes.
  BYTE* m_lpJbigData = nullptr;

 private:
  bool IsAvailHeader(const tagJBIGSCANDATAHEADER* pHeader);
  int SearchNextHeader(const BYTE* pData, int nDataSize) const;
  void SetCodecParameter(CODECCSTR* pCodec, BYTE* pCBuff, BYTE* pIBuff,
                         const tagJBIGSCANDATAHEADER* pHeader, const CJbigTmpBuf* pTmpBuf) const;
  tagJBIGSCANDATAHEADER gathered_header() const;
  void gather(const BYTE* from, DWORD length, std::uint64_t needed);
  bool is_whole(const tagJBIGSCANDATAHEADER& header) const;
  int decode(const tagJBIGSCANDATAHEADER& header) const;

  std::int8_t m_bFirstHeader = 1;                  // until the first header has been accepted
  tagJBIGSCANDATAHEADER m_JbigDataHeaderBackup{};  // that first header
  BYTE m_byHeaderSize = 0;                         // bytes from a block's start to its JBIG data
  BYTE m_byJbigTpbTemplate = 0;
  BYTE m_byJbigLineTemplate = 2;
  DWORD m_dwMemorySize = 0;                // bytes at m_lpJbigData, streaming path
  DWORD m_WritePtr = 0;                    // bytes gathered, streaming path
  CImageDataCtrl* m_pImageData = nullptr;  // owned
};

}  // namespace vox
