// The alternative to the library's JPEG encoder: libjpeg-turbo, on planes without conversion.
#pragma once

#include <jpeglib.h>
#include <stdio.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace corvane::bench {

struct Yuv420 {
    const uint8_t* planes[3];    // rows of the width and of half of it, which are even
    uint32_t width;
    uint32_t height;
};

// A whole file into `out`, which must be large enough, with these divisors in natural order. Its size.
inline size_t EncodeByLibjpeg(const Yuv420& picture, const unsigned (&divisors)[2][64], std::vector<uint8_t>& out) {
    jpeg_compress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* to = out.data();
    unsigned long size = out.size();
    jpeg_mem_dest(&info, &to, &size);
    info.image_width = picture.width;
    info.image_height = picture.height;
    info.input_components = 3;
    info.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&info);
    info.raw_data_in = TRUE;
    info.dct_method = JDCT_ISLOW;
    for (int table = 0; table < 2; ++table)
        jpeg_add_quant_table(&info, table, divisors[table], 100, TRUE);
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < picture.height) {
        JSAMPROW rows[3][16];
        JSAMPARRAY all[3] = {rows[0], rows[1], rows[2]};
        for (uint32_t c = 0; c < 3; ++c) {
            const uint32_t part = c == 0 ? 1 : 2;
            for (uint32_t r = 0; r < 16 / part; ++r)    // of the last MCUs the last row again
                rows[c][r] =
                    const_cast<uint8_t*>(picture.planes[c]) +
                    size_t{std::min(info.next_scanline + r * part, picture.height - 1) / part} * (picture.width / part);
        }
        jpeg_write_raw_data(&info, all, 16);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    return size;
}

}    // namespace corvane::bench
