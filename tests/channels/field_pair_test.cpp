// An H.264 stream whose pictures come as two fields in two packets. No encoder here makes one, so it is written by hand
// after ITU-T H.264, clause 7.3: every macroblock carries its samples as they are (I_PCM).
#include <gtest/gtest.h>

#include "support/BareDecoder.h"
#include "support/Client.h"

namespace corvane {
namespace {

constexpr int kWidth = 80;     // five macroblocks
constexpr int kHeight = 32;    // one row of macroblocks in each field

class NalWriter {
public:
    explicit NalWriter(uint8_t header) { Bits(header, 8); }

    void Bits(uint32_t value, int count) {
        while (--count >= 0) {
            m_byte = static_cast<uint8_t>(m_byte << 1 | (value >> count & 1));
            if (++m_filled == 8)
                Flush();
        }
    }
    void Golomb(uint32_t value) {    // ue(v); se(v) is only written for 0, which is the same
        int size = 0;
        while ((value + 1) >> (size + 1) != 0)
            ++size;
        Bits(0, size);
        Bits(value + 1, size + 1);
    }
    void Align() {
        while (m_filled != 0)
            Bits(0, 1);
    }
    void AppendTo(std::vector<uint8_t>& stream) {
        Bits(1, 1);
        Align();
        stream.insert(stream.end(), {0, 0, 0, 1});
        int zeros = 0;
        for (const uint8_t byte : m_bytes) {
            if (zeros == 2 && byte <= 3)
                stream.push_back(3);    // keeps start codes out of the payload
            zeros = byte != 0 || (zeros == 2 && byte <= 3) ? 0 : zeros + 1;
            stream.push_back(byte);
        }
    }

private:
    void Flush() {
        m_bytes.push_back(m_byte);
        m_filled = 0;
    }

    std::vector<uint8_t> m_bytes;
    uint8_t m_byte = 0;
    int m_filled = 0;
};

void WriteParameterSets(std::vector<uint8_t>& stream) {
    NalWriter sps(0x67);
    sps.Bits(77 << 16 | 30, 24);    // Main profile, level 3
    for (const uint32_t value :
         {0, 0, 0, 4, 1})    // id, 4 bits of frame_num, order count type 0 of 8 bits, one reference
        sps.Golomb(value);
    sps.Bits(0, 1);
    sps.Golomb(kWidth / 16 - 1);
    sps.Golomb(kHeight / 32 - 1);
    sps.Bits(0b00100, 5);    // fields allowed, no adaptive frame and field, direct inference, no cropping, no VUI
    sps.AppendTo(stream);
    NalWriter pps(0x68);
    pps.Golomb(0);
    pps.Golomb(0);
    pps.Bits(0, 2);
    for (int i = 0; i < 3; ++i)
        pps.Golomb(0);
    pps.Bits(0, 3);
    for (int i = 0; i < 3; ++i)
        pps.Golomb(0);
    pps.Bits(0b100, 3);    // deblocking is told in the slices
    pps.AppendTo(stream);
}

void WriteField(std::vector<uint8_t>& stream, const AVFrame& picture, bool bottom, uint32_t number) {
    NalWriter slice(bottom ? 0x61 : 0x65);    // the first field is IDR, the second cannot be
    slice.Golomb(0);
    slice.Golomb(7);    // I
    slice.Golomb(0);
    slice.Bits(0, 4);
    slice.Bits(bottom ? 0b11 : 0b10, 2);
    if (!bottom)
        slice.Golomb(number % 2);
    slice.Bits(bottom ? 1 : 0, 8);
    slice.Bits(0, bottom ? 1 : 2);
    slice.Golomb(0);
    slice.Golomb(1);    // no deblocking
    for (int block = 0; block < kWidth / 16; ++block) {
        slice.Golomb(25);    // I_PCM
        slice.Align();
        for (int plane = 0; plane < 3; ++plane) {
            const int size = plane == 0 ? 16 : 8;
            for (int row = 0; row < size; ++row)
                for (int column = 0; column < size; ++column)
                    slice.Bits(
                        picture.data[plane][(2 * row + bottom) * picture.linesize[plane] + block * size + column], 8);
        }
    }
    slice.AppendTo(stream);
}

TEST(FieldPairs, TwoFieldsInTwoPacketsKeepTheChannelGoing) {
    const auto encoded = test::MakeVideo({.width = kWidth, .height = kHeight, .frames = 8});
    const auto pictures = test::BareDecode(CORVANE_STREAM_H264, encoded);
    ASSERT_EQ(pictures.size(), 8u);
    test::Client client;
    client.Start();
    ASSERT_EQ(Corvane_SetChannelOption(client.channel, 48, 1, 0), Status_Ok);
    for (uint32_t i = 0; i < 8; ++i) {
        std::vector<uint8_t> fields[2];
        WriteParameterSets(fields[0]);
        WriteField(fields[0], *pictures[i], false, i);
        WriteField(fields[1], *pictures[i], true, i);
        ASSERT_EQ(client.Feed(CORVANE_STREAM_H264, fields[0], true, 10 * i), Status_Ok);
        ASSERT_EQ(client.Feed(CORVANE_STREAM_H264, fields[1], false, 10 * i + 5), Status_Ok);
        // A decoder that gave a picture and answers the next first field with none is dropped, and comes back with the
        // key field after: every other picture is shown, whole.
        if (i % 2 == 0)
            ASSERT_TRUE(client.WaitForStamp(static_cast<int>(i)));
    }
    EXPECT_EQ(client.Stamps(), (std::vector<int>{0, 2, 4, 6}));
    // The parameter sets in a packet of their own, marked as a key frame, in front of a dependent-looking picture.
    std::vector<uint8_t> sets;
    WriteParameterSets(sets);
    ASSERT_EQ(client.Feed(CORVANE_STREAM_H264, sets, true, 100), Status_Ok);
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(client.Feed(CORVANE_STREAM_H264, encoded[static_cast<size_t>(i)].bytes, i == 0, 110 + i), Status_Ok);
    EXPECT_TRUE(client.WaitForStamp(4));
}

}    // namespace
}    // namespace corvane
