// Colour-space conversions (XYZ, L*a*b*, L*C*h), the 8- and 16-bit PCS
// encodings, and the grid coordinate tables of method 1.
//
// The constants below are the ones this library has always used (0.008856,
// 7.787, 903.3, pi to ten decimals, ...). They are deliberately not the exact
// CIE values: tables built with other constants would differ in the last code.
#include "transform/colour.h"

#include <cmath>

#include "transform/build_common.h"

namespace tintra3 {

namespace {

constexpr double kLabEpsilon = 0.008856;           // threshold on t = X/Xn etc.
constexpr double kLabSlope = 7.787;                // f(t) = 7.787 t + 16/116 below it
constexpr double kLabOffset = 0.13793103448275862;  // 16/116
constexpr double kLabKappa = 903.3;                // L = 903.3 y below it
constexpr double kCubeRootExponent = 0.3333333333333333;
// Inverse thresholds, derived from the forward constants (not the exact CIE ones):
constexpr double kLinearLMax = 7.9996247999999985;  // 903.3 * 0.008856
constexpr double kLinearFMax = 0.2068927064827586;  // 7.787 * 0.008856 + 16/116
constexpr double kInvKappa = 0.0011070519207350825;  // 1 / 903.3
constexpr double kInv116 = 0.008620689655172414;     // 1 / 116
constexpr double kInvSlope = 0.1284191601386927;     // 1 / 7.787
constexpr double kPi = 3.1415926535;
constexpr double kMaxChroma = 255.99609375;  // largest 8.8 chroma code, 65535 / 256

// Clips to [lo, hi]; a NaN passes through and later codes as 0 (see TruncToInt).
inline double Clip(double v, double lo, double hi) {
    if (v < lo) return lo;
    if (v > hi) return hi;
    return v;
}

// Clip, scale, add 0.5 and truncate: round half up of a non-negative value.
inline uint16_t Code16(double v, double lo, double hi, double offset, double scale) {
    return static_cast<uint16_t>(static_cast<uint32_t>(TruncToInt((Clip(v, lo, hi) + offset) * scale + 0.5)));
}
inline uint8_t Code8(double v, double lo, double hi, double offset, double scale) {
    return static_cast<uint8_t>(static_cast<uint32_t>(TruncToInt((Clip(v, lo, hi) + offset) * scale + 0.5)));
}

inline double LabF(double t) { return t > kLabEpsilon ? std::pow(t, kCubeRootExponent) : kLabSlope * t + kLabOffset; }

inline double LabFInverse(double f) { return f > kLinearFMax ? std::pow(f, 3.0) : (f - kLabOffset) * kInvSlope; }

}  // namespace

void XyzToLab(const double white[3], const double in[3], double out[3]) {
    const double x = in[0] / white[0];
    const double y = in[1] / white[1];
    const double z = in[2] / white[2];
    double fy;
    double l;
    // Strictly greater: y == 0.008856 takes the linear branch.
    if (y > kLabEpsilon) {
        fy = std::pow(y, kCubeRootExponent);
        l = 116.0 * fy - 16.0;
    } else {
        fy = kLabSlope * y + kLabOffset;
        l = kLabKappa * y;
    }
    const double fx = LabF(x);
    const double fz = LabF(z);
    out[0] = l;
    out[1] = 500.0 * (fx - fy);
    out[2] = 200.0 * (fy - fz);
}

void LabToXyz(const double white[3], const double in[3], double out[3]) {
    const double l = in[0];
    double y;
    double fy;
    if (l <= kLinearLMax) {
        y = l * kInvKappa;
        fy = kLabOffset + kLabSlope * y;
    } else {
        fy = (l + 16.0) * kInv116;
        y = std::pow(fy, 3.0);
    }
    const double fx = fy - in[1] * -0.002;  // fy + a / 500
    const double fz = fy - in[2] * 0.005;   // fy - b / 200
    // Y keeps the y of the first step: in the linear case it is not fy cubed.
    out[0] = white[0] * LabFInverse(fx);
    out[1] = white[1] * y;
    out[2] = white[2] * LabFInverse(fz);
}

void LabToLch(const double /*white*/[3], const double in[3], double out[3]) {
    double c = std::sqrt(in[1] * in[1] + in[2] * in[2]);
    if (c > kMaxChroma) c = kMaxChroma;
    out[0] = in[0];
    out[1] = c;
    out[2] = std::atan2(in[2], in[1]);  // from the unclipped a, b
}

void LchToLab(const double /*white*/[3], const double in[3], double out[3]) {
    out[0] = in[0];
    out[1] = in[1] * std::cos(in[2]);
    out[2] = in[1] * std::sin(in[2]);
}

void XyzToLch(const double white[3], const double in[3], double out[3]) {
    double lab[3];
    XyzToLab(white, in, lab);
    LabToLch(white, lab, out);
}

void LchToXyz(const double white[3], const double in[3], double out[3]) {
    double lab[3];
    LchToLab(white, in, lab);
    LabToXyz(white, lab, out);
}

// 16-bit codes: XYZ unsigned 1.15; L 0..100 -> 0..65535; a, b 8.8 offset by
// 128; C 8.8; h 65536 codes per turn of 2 x 3.1415926535 starting at -pi.
void EncodeXyz16(const double in[3], uint16_t out[3]) {
    for (int c = 0; c < 3; ++c) out[c] = Code16(in[c], 0.0, 1.999969482421875, 0.0, 32768.0);
}

void DecodeXyz16(const uint16_t in[3], double out[3]) {
    for (int c = 0; c < 3; ++c) out[c] = in[c] * 3.0517578125e-5;
}

void EncodeLab16(const double in[3], uint16_t out[3]) {
    out[0] = Code16(in[0], 0.0, 100.0, 0.0, 655.35);
    out[1] = Code16(in[1], -128.0, 127.99609375, 128.0, 256.0);
    out[2] = Code16(in[2], -128.0, 127.99609375, 128.0, 256.0);
}

void DecodeLab16(const uint16_t in[3], double out[3]) {
    out[0] = in[0] * 0.0015259021896696422;
    out[1] = in[1] / 256.0 - 128.0;
    out[2] = in[2] / 256.0 - 128.0;
}

void EncodeLch16(const double in[3], uint16_t out[3]) {
    out[0] = Code16(in[0], 0.0, 100.0, 0.0, 655.35);
    out[1] = Code16(in[1], 0.0, kMaxChroma, 0.0, 256.0);
    // The hue is shifted before clipping; the upper bound is code 65535 in
    // radians, so +pi never wraps round to 0.
    out[2] = Code16(in[2] + kPi, 0.0, 6.28308943320076, 0.0, 10430.378350768575);
}

void DecodeLch16(const uint16_t in[3], double out[3]) {
    out[0] = in[0] * 0.0015259021896696422;
    out[1] = in[1] / 256.0;
    out[2] = in[2] * 9.58737992401123e-5 - kPi;
}

// 8-bit codes: XYZ unsigned 1.7; L 0..100 -> 0..255; a, b offset by 128 and
// clipped at 127 (not 127.99...); C as is; h 256 codes per turn.
void EncodeXyz8(const double in[3], uint8_t out[3]) {
    for (int c = 0; c < 3; ++c) out[c] = Code8(in[c], 0.0, 1.9921875, 0.0, 128.0);
}

void DecodeXyz8(const uint8_t in[3], double out[3]) {
    for (int c = 0; c < 3; ++c) out[c] = in[c] * 0.0078125;
}

void EncodeLab8(const double in[3], uint8_t out[3]) {
    out[0] = Code8(in[0], 0.0, 100.0, 0.0, 2.55);
    out[1] = Code8(in[1], -128.0, 127.0, 128.0, 1.0);
    out[2] = Code8(in[2], -128.0, 127.0, 128.0, 1.0);
}

void DecodeLab8(const uint8_t in[3], double out[3]) {
    out[0] = in[0] * 0.3921568627450981;
    out[1] = in[1] - 128.0;
    out[2] = in[2] - 128.0;
}

void EncodeLch8(const double in[3], uint8_t out[3]) {
    out[0] = Code8(in[0], 0.0, 100.0, 0.0, 2.55);
    out[1] = Code8(in[1], 0.0, 255.0, 0.0, 1.0);
    out[2] = Code8(in[2] + kPi, 0.0, 6.258641614394532, 0.0, 40.743665432689745);
}

void DecodeLch8(const uint8_t in[3], double out[3]) {
    out[0] = in[0] * 0.3921568627450981;
    out[1] = in[1];
    out[2] = in[2] * 0.02454369260546875 - kPi;
}

int BuildGridIndexTables(uint16_t* status, ValueBuffer* index, ValueBuffer* fraction, uint32_t points) {
    // Coordinate i of 4095 among points - 1 cells; the top (i = 4095) sits at
    // fraction 1.0 of the last cell.
    return BuildCellTables<uint16_t, uint32_t>(status, points, 4096, kScale12, index, fraction);
}

}  // namespace tintra3
