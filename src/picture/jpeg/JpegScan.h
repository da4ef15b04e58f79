// One scan of a JPEG stream: blocks out of planes, through the kernels, into entropy-coded bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/Status.h"
#include "picture/jpeg/BitPacker.h"
#include "picture/jpeg/JpegHuffman.h"

namespace corvane::jpeg {

// A component of a scan and the pixels of it that may be read: `width` x `height` from `samples`, rows `step` bytes
// apart. Blocks that reach beyond them repeat the last column and row; blocks wholly beyond are zero.
struct ScanComponent {
    const uint8_t* samples;
    size_t step;
    uint32_t width, height;
    uint32_t columns, rows;    // of blocks in an MCU: 1 or 2 each
    const uint16_t* reciprocals;
    const CodeTables* codes;
    HuffmanSet* counted;    // where its symbols are counted; null for nowhere
    int16_t predictor;
};

struct Scan {
    ScanComponent components[3];
    uint32_t count;
    uint32_t mcuColumns, mcuRows;
    uint32_t restartInterval;    // MCUs; 0 for none
};

// Writes the entropy-coded part of a scan and its restart markers, from a byte boundary on. Needs some 8 KB of stack.
// On failure the packer stands where its first refused write left it, and what was counted is of no use.
Status WriteScan(BitPacker& packer, Scan& scan);

}    // namespace corvane::jpeg
