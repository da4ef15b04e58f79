#include "decoders/G726Kernel.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

namespace corvane {

// Tables 7 to 14 of the Recommendation. `level` is the logarithm of the quantised difference (DQLN, 7 bits of fraction;
// kSilent: no difference), `weight` the multiplier of the scale factor (WI, 4 bits of fraction), `speed` the weight of
// the code for the speed of adaptation (FI).
struct G726Kernel::Rate {
    int16_t level[16];
    int16_t weight[16];
    uint8_t speed[16];
};

namespace {

constexpr int16_t kSilent = -2048;

int32_t BitLength(int32_t value) {
    return static_cast<int32_t>(std::bit_width(static_cast<uint32_t>(value)));
}

// The Recommendation's variables of 16 bits wrap.
int32_t Wrap(int32_t value) {
    return static_cast<int16_t>(value);
}

}    // namespace

const G726Kernel::Rate& G726Kernel::RateOf(unsigned bits) {
    static constexpr Rate kRates[4] = {
        {{116, 365}, {-22, 439}, {0, 7}},
        {{kSilent, 135, 273, 373}, {-4, 30, 137, 582}, {0, 1, 2, 7}},
        {{kSilent, 4, 135, 213, 273, 323, 373, 425}, {-12, 18, 41, 64, 112, 198, 355, 1122}, {0, 0, 0, 1, 1, 1, 3, 7}},
        {{kSilent, -66, 28, 104, 169, 224, 274, 318, 358, 395, 429, 459, 488, 514, 539, 566},
         {14, 14, 24, 39, 40, 41, 58, 100, 141, 179, 219, 280, 358, 440, 529, 696},
         {0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 2, 3, 4, 5, 6, 6}},
    };
    return kRates[bits - 2];
}

G726Kernel::G726Kernel(unsigned bits) : m_bits(bits), m_rate(RateOf(bits)) {
    m_signals.fill(ToFloat(0, false));
    m_differences.fill(ToFloat(0, false));
}

// FLOATA, FLOATB.
G726Kernel::Float G726Kernel::ToFloat(int32_t magnitude, bool negative) {
    const int32_t exponent = BitLength(magnitude);
    return {exponent, magnitude == 0 ? 32 : (magnitude << 6) >> exponent, negative};
}

// FMULT. Eight of these are most of the work of a sample.
int32_t G726Kernel::Multiply(int32_t coefficient, const Float& value) {
    const bool coefficientNegative = coefficient < 0;
    const int32_t shifted = coefficient >> 2;
    const int32_t size = (coefficientNegative ? -shifted : shifted) & 8191;
    const int32_t length = BitLength(size);
    const int32_t factor = size == 0 ? 32 : (size << 6) >> length;
    const int32_t exponent = length + value.exponent;
    const int32_t mantissa = (factor * value.mantissa + 48) >> 4 << 7;
    const int32_t magnitude = exponent <= 26 ? mantissa >> (26 - exponent) : (mantissa << (exponent - 26)) & 0x7FFF;
    return coefficientNegative != value.negative ? -magnitude : magnitude;
}

// LIMA, MIX: the scale factor (y), 9 bits of fraction.
int32_t G726Kernel::ScaleFactor() const {
    const int32_t share = m_speed >= 256 ? 64 : m_speed >> 2;
    const int32_t slow = m_slow >> 6;
    const int32_t product = (std::abs(m_fast - slow) * share) >> 6;
    return slow + (m_fast < slow ? -product : product);
}

// TRANS: whether the difference is that of a change from a tone or a modem's signal to another.
bool G726Kernel::IsTransition(int32_t magnitude) const {
    if (!m_tone)
        return false;
    const int32_t whole = m_slow >> 15;
    const int32_t threshold = whole > 9 ? 31 << 10 : (32 + (m_slow >> 10 & 31)) << whole;
    return magnitude > (threshold + (threshold >> 1)) >> 1;
}

int16_t G726Kernel::Decode(unsigned code) {
    // ACCUM: the estimates of both predictors.
    int32_t sum = 0;
    for (size_t i = 0; i < m_zeros.size(); ++i)
        sum += Multiply(m_zeros[i], m_differences[i]);
    const int32_t zeroEstimate = Wrap(sum) >> 1;
    sum += Multiply(m_poles[0], m_signals[0]) + Multiply(m_poles[1], m_signals[1]);
    const int32_t estimate = Wrap(sum) >> 1;

    // RECONST, ADDA, ANTILOG: the quantised difference.
    const unsigned signBit = 1u << (m_bits - 1);
    const bool negative = (code & signBit) != 0;
    const unsigned magnitudeCode = negative ? code ^ (2 * signBit - 1) : code;
    const int32_t scale = ScaleFactor();
    const int32_t logarithm = m_rate.level[magnitudeCode] + (scale >> 2);
    const int32_t magnitude = logarithm < 0 ? 0 : ((128 + (logarithm & 127)) << 7) >> (14 - (logarithm >> 7 & 15));
    const int32_t difference = negative ? -magnitude : magnitude;
    const int32_t reconstructed = Wrap(estimate + difference);    // ADDB

    const bool transition = IsTransition(magnitude);
    AdaptPredictor(difference, negative, reconstructed, zeroEstimate, transition);
    AdaptScale(scale, magnitudeCode, transition);
    return static_cast<int16_t>(std::clamp(reconstructed, -8192, 8191) * 4);
}

// Section 4.2.6: the coefficients of both predictors and their delays.
void G726Kernel::AdaptPredictor(int32_t difference, bool negative, int32_t reconstructed, int32_t zeroEstimate,
                                bool transition) {
    // ADDC.
    const int32_t partial = Wrap(difference + zeroEstimate);
    const bool partialNegative = partial < 0;
    const bool sameAsLast = partialNegative == m_negative[0];
    const bool sameAsSecond = partialNegative == m_negative[1];
    m_negative = {partialNegative, m_negative[0]};

    // UPA2, LIMC, UPA1, LIMD.
    int32_t gain1 = 0;
    int32_t gain2 = 0;
    if (partial != 0) {
        const int32_t limited = std::clamp(m_poles[0], -8191, 8191) << 2;
        gain2 = ((sameAsSecond ? 16384 : -16384) + (sameAsLast ? -limited : limited)) >> 7;
        gain1 = sameAsLast ? 192 : -192;
    }
    const int32_t pole2 = std::clamp(m_poles[1] + gain2 - (m_poles[1] >> 7), -12288, 12288);
    const int32_t most = 15360 - pole2;
    const int32_t pole1 = std::clamp(m_poles[0] + gain1 - (m_poles[0] >> 8), -most, most);

    // TRIGB, TONE.
    m_poles = transition ? std::array<int32_t, 2>{} : std::array<int32_t, 2>{pole1, pole2};
    m_tone = !transition && pole2 < -11776;
    AdaptZeros(std::abs(difference), negative, transition);
    m_signals = {ToFloat(std::abs(reconstructed) & 0x7FFF, reconstructed < 0), m_signals[0]};
}

// XOR, UPB: the sixth-order predictor.
void G726Kernel::AdaptZeros(int32_t magnitude, bool negative, bool transition) {
    const int leak = m_bits == 5 ? 9 : 8;
    for (size_t i = 0; i < m_zeros.size(); ++i) {
        const int32_t gain = magnitude == 0 ? 0 : m_differences[i].negative == negative ? 128 : -128;
        m_zeros[i] = transition ? 0 : Wrap(m_zeros[i] - (m_zeros[i] >> leak) + gain);
    }
    std::copy_backward(m_differences.begin(), m_differences.end() - 1, m_differences.end());
    m_differences[0] = ToFloat(magnitude, negative);
}

// Sections 4.2.4 and 4.2.5: scale factors and the speed of their adaptation.
void G726Kernel::AdaptScale(int32_t scale, unsigned code, bool transition) {
    // FUNCTW, FILTD, LIMB, FILTE.
    m_fast = std::clamp(scale + (((m_rate.weight[code] << 5) - scale) >> 5), 544, 5120);
    m_slow += m_fast + (-m_slow >> 6);
    // FUNCTF, FILTA, FILTB.
    const int32_t weight = m_rate.speed[code];
    m_shortTerm += ((weight << 9) - m_shortTerm) >> 5;
    m_longTerm += ((weight << 11) - m_longTerm) >> 7;
    // SUBTC, FILTC, TRIGA; `m_tone` is that of this sample.
    const bool fast = scale < 1536 || m_tone || std::abs((m_shortTerm << 2) - m_longTerm) >= m_longTerm >> 3;
    m_speed = transition ? 256 : m_speed + (((fast ? 512 : 0) - m_speed) >> 4);
}

}    // namespace corvane
