// The inner loop across a line as vector code. All that LineVectors.h says of versions, arithmetic,
// aliases, alignment, errors and threads holds here as well.
#pragma once

namespace vox {

struct WIDTH_TABLES;

// scale_width makes dst[0, tables.bytes) of src[0, tables.source_bytes).
void scale_width(const WIDTH_TABLES& tables, unsigned char* dst, const unsigned char* src) noexcept;

}  // namespace vox
