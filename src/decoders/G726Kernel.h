// The decoder of Recommendation G.726: codes of 2 to 5 bits (16 to 40 kbit/s) to linear samples at 8000 Hz. It follows
// section 4.2 block by block, to the bit; the output is the reconstructed signal, without the adjustment for tandems
// of G.711 channels.
#pragma once

#include <array>
#include <cstdint>

namespace corvane {

class G726Kernel {
public:
    // 2, 3, 4 or 5 bits a code.
    explicit G726Kernel(unsigned bits);

    // `code` has no bits above those of a code. 14 bits of signal at the top of 16.
    int16_t Decode(unsigned code);

private:
    // The tables of one rate, by the magnitude of the code.
    struct Rate;
    // A number as the predictor multiplies it: 6 bits of mantissa, 4 of exponent.
    struct Float {
        int32_t exponent;
        int32_t mantissa;
        bool negative;
    };

    static const Rate& RateOf(unsigned bits);
    static Float ToFloat(int32_t magnitude, bool negative);
    static int32_t Multiply(int32_t coefficient, const Float& value);
    int32_t ScaleFactor() const;
    void AdaptPredictor(int32_t difference, bool negative, int32_t reconstructed, int32_t zeroEstimate,
                        bool transition);
    void AdaptZeros(int32_t magnitude, bool negative, bool transition);
    void AdaptScale(int32_t scale, unsigned code, bool transition);
    bool IsTransition(int32_t magnitude) const;

    const unsigned m_bits;
    const Rate& m_rate;
    int32_t m_slow = 34816;                // yl: slow scale factor, 15 bits of fraction
    int32_t m_fast = 544;                  // yu: fast scale factor, 9 bits of fraction
    int32_t m_shortTerm = 0;               // dms: averages of the weighted codes
    int32_t m_longTerm = 0;                // dml
    int32_t m_speed = 0;                   // ap
    bool m_tone = false;                   // td
    std::array<int32_t, 2> m_poles{};      // a: coefficients, 14 bits of fraction
    std::array<int32_t, 6> m_zeros{};      // b
    std::array<Float, 2> m_signals;        // sr: the last reconstructed signals, newest first
    std::array<Float, 6> m_differences;    // dq: the last quantised differences, newest first
    std::array<bool, 2> m_negative{};      // pk: signs of the last partial signals, newest first
};

}    // namespace corvane
