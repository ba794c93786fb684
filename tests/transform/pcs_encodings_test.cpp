// The 8- and 16-bit PCS encodings: exact codes at the edges, fixed decoder
// scales, and every code through decode and encode back to itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <numbers>

#include "transform/colour.h"

namespace tintra3 {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// An encoder and its decoder, widened to 32-bit codes.
struct Codec {
    std::function<void(const double*, uint32_t*)> encode;
    std::function<void(const uint32_t*, double*)> decode;
    uint32_t top;
};
template <typename T>
Codec Make(void (*encode)(const double*, T*), void (*decode)(const T*, double*)) {
    const auto widened = [encode](const double* in, uint32_t* out) {
        T c[3];
        encode(in, c);
        std::copy(c, c + 3, out);
    };
    const auto narrowed = [decode](const uint32_t* in, double* out) {
        const T c[] = {T(in[0]), T(in[1]), T(in[2])};
        decode(c, out);
    };
    return {widened, narrowed, std::numeric_limits<T>::max()};
}
const Codec kXyz16 = Make(EncodeXyz16, DecodeXyz16);
const Codec kLab16 = Make(EncodeLab16, DecodeLab16);
const Codec kLch16 = Make(EncodeLch16, DecodeLch16);
const Codec kXyz8 = Make(EncodeXyz8, DecodeXyz8);
const Codec kLab8 = Make(EncodeLab8, DecodeLab8);
const Codec kLch8 = Make(EncodeLch8, DecodeLch8);

// Exact codes at the edges; fixed decoder scales (0.3921568627450981 is one ulp from 100.0 / 255, which a
// round trip cannot see; the hue starts at -pi written to ten decimals); and every code decodes and encodes
// back to itself, so a wrong scale, offset or rounding in either direction breaks some code of the sweep.
TEST(Encodings, EdgesScalesAndEveryCode) {
    struct Case {
        const Codec* codec;
        double in[3];
        std::array<uint32_t, 3> out;
        const char* why;
    };
    const Case cases[] = {
        {&kXyz16, {2.0, -0.1, 1.0}, {65535, 0, 32768}, "clip both ends; 1.0 is 0x8000"},
        {&kXyz16, {kNaN, 0.5, 1.999969482421875}, {0, 16384, 65535}, "NaN codes 0; top code exact"},
        {&kLab16, {100, 127.9, -200}, {65535, 65510, 0}, "a, b clip at 127.99609375 not 127"},
        {&kLab16, {50, 0, 127.99609375}, {32768, 32768, 65535}, "L 50 rounds half up"},
        {&kLch16, {0, 300, std::numbers::pi}, {0, 65535, 65535}, "+pi is the last code, never 0"},
        {&kLch16, {-5, 1, -std::numbers::pi}, {0, 256, 0}, "-pi is code 0"},
        {&kLch16, {100, 0, 0}, {65535, 0, 32768}, "hue 0 is half a turn"},
        {&kXyz8, {2.0, 1.0, -1}, {255, 128, 0}, "unsigned 1.7"},
        {&kLab8, {100, 127.9, -129}, {255, 255, 0}, "8-bit a, b clip at 127"},
        {&kLab8, {50, 0.4, -0.6}, {127, 128, 127}, "50 x 2.55 falls just below 127.5"},
        {&kLab8, {60, 0, 0}, {153, 128, 128}, "L 60 is exactly 153"},
        {&kLch8, {0, 300, std::numbers::pi}, {0, 255, 255}, "+pi is code 255"},
        {&kLch8, {kNaN, 10.5, -std::numbers::pi}, {0, 11, 0}, "NaN codes 0"},
    };
    for (const Case& c : cases) {
        std::array<uint32_t, 3> out;
        c.codec->encode(c.in, out.data());
        EXPECT_EQ(out, c.out) << c.why;
    }
    struct Scale {
        const Codec* codec;
        int k;
        double out;
    };
    const Scale scales[] = {
        {&kLab16, 0, 0.0015259021896696422},               // L: 100 / 65535 as written
        {&kLch16, 0, 0.0015259021896696422},
        {&kLch16, 2, 9.58737992401123e-5 - 3.1415926535},  // the hue starts at -pi to ten decimals
        {&kLab8, 0, 0.3921568627450981},                   // one ulp from 100.0 / 255
        {&kLch8, 0, 0.3921568627450981},
        {&kLch8, 2, 0.02454369260546875 - 3.1415926535},
    };
    for (const Scale& c : scales) {
        const uint32_t one[3] = {1, 1, 1};
        double out[3];
        c.codec->decode(one, out);
        EXPECT_EQ(out[c.k], c.out) << &c - scales;
    }
    for (const Codec* codec : {&kXyz16, &kLab16, &kLch16, &kXyz8, &kLab8, &kLch8})
        for (uint32_t v = 0; v <= codec->top; ++v) {
            const uint32_t code[3] = {v, v, v};
            uint32_t back[3];
            double decoded[3];
            codec->decode(code, decoded);
            codec->encode(decoded, back);
            for (int k = 0; k < 3; ++k) ASSERT_EQ(back[k], v) << "code " << v << " component " << k;
        }
}

}  // namespace
}  // namespace tintra3
