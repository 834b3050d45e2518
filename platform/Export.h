// VOX_EXPORT marks what users of libvox may link to; everything else is hidden.
#pragma once

#define VOX_EXPORT __attribute__((visibility("default")))
