// Profile preparation: a reader of the tag types real profiles carry
// ('curv', 'para', 'XYZ ', 'mft1', 'mft2', 'mAB ', 'mBA '), evaluated in
// double precision, and the writer of the version-2 equivalent.
//
// Lookup tables are rebuilt as 'mft2' in one shape: input tables carry the
// first curve set of the pipeline (and the PCS re-encoding on the B2A side),
// the CLUT carries what lies between, sampled at the nodes of the original
// CLUT (so a plain table keeps its nodes exactly), and the output tables
// carry the last curve set (and the PCS re-encoding on the A2B side).
#include "tools/iccwriter/icc_prepare.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <set>

#include "tools/iccwriter/icc_writer.h"

namespace tintra3::icc {
namespace {

// ---- bounds-checked big-endian reading ---------------------------------------

struct Bytes {
    const std::vector<uint8_t>& b;

    void Need(size_t at, size_t n) const {
        if (at > b.size() || n > b.size() - at) throw std::runtime_error("cut short");
    }
    uint8_t U8(size_t at) const {
        Need(at, 1);
        return b[at];
    }
    uint16_t U16(size_t at) const {
        Need(at, 2);
        return uint16_t((b[at] << 8) | b[at + 1]);
    }
    uint32_t U32(size_t at) const {
        Need(at, 4);
        return (uint32_t(b[at]) << 24) | (uint32_t(b[at + 1]) << 16) | (uint32_t(b[at + 2]) << 8) | b[at + 3];
    }
    double S15(size_t at) const { return double(int32_t(U32(at))) / 65536.0; }
};

std::string Text(uint32_t sig) {
    std::string s = "'";
    for (int shift = 24; shift >= 0; shift -= 8) {
        const char c = char(sig >> shift);
        s += (c >= 32 && c < 127) ? c : '?';
    }
    return s + "'";
}

struct Entry {
    uint32_t signature, offset, size;
};

struct Parsed {
    uint32_t cmm = 0, version = 0, deviceClass = 0, colorSpace = 0, pcs = 0, magic = 0;
    std::vector<Entry> tags;

    const Entry* Find(uint32_t sig) const {
        for (const Entry& e : tags)
            if (e.signature == sig) return &e;
        return nullptr;
    }
};

Parsed Parse(const std::vector<uint8_t>& profile) {
    const Bytes r{profile};
    if (profile.size() < 132) throw std::runtime_error("shorter than an ICC header and tag count");
    Parsed p;
    p.cmm = r.U32(4);
    p.version = r.U32(8);
    p.deviceClass = r.U32(12);
    p.colorSpace = r.U32(16);
    p.pcs = r.U32(20);
    p.magic = r.U32(36);
    if (p.magic != Sig4("acsp")) throw std::runtime_error("not an ICC profile (no 'acsp' signature)");
    const uint32_t count = r.U32(128);
    if (count > (profile.size() - 132) / 12) throw std::runtime_error("tag directory runs past the end of the file");
    for (uint32_t i = 0; i < count; ++i)
        p.tags.push_back({r.U32(132 + 12 * i), r.U32(136 + 12 * i), r.U32(140 + 12 * i)});
    return p;
}

uint32_t TypeOf(const std::vector<uint8_t>& profile, const Entry& e) {
    if (e.offset > profile.size() || profile.size() - e.offset < 4) return 0;
    return Bytes{profile}.U32(e.offset);
}


// ---- curves ------------------------------------------------------------------

struct Curve {
    enum class Kind { kIdentity, kGamma, kTable, kParametric } kind = Kind::kIdentity;
    double gamma = 1.0;
    std::vector<uint16_t> table;
    uint16_t function = 0;
    std::array<double, 7> p{};

    double Eval(double x) const {
        x = std::clamp(x, 0.0, 1.0);
        switch (kind) {
            case Kind::kIdentity: return x;
            case Kind::kGamma: return std::pow(x, gamma);
            case Kind::kTable: {
                const double pos = x * double(table.size() - 1);
                const size_t i = std::min(size_t(pos), table.size() - 2);
                const double f = pos - double(i);
                return (table[i] * (1.0 - f) + table[i + 1] * f) / 65535.0;
            }
            case Kind::kParametric: return std::clamp(Parametric(x), 0.0, 1.0);
        }
        return x;
    }

private:
    static double Power(double base, double g) { return base > 0.0 ? std::pow(base, g) : 0.0; }
    // The five function types of 'para': g, a, b, c, d, e, f in p[0..6].
    double Parametric(double x) const {
        const double g = p[0], a = p[1], b = p[2], c = p[3], d = p[4], e = p[5], f = p[6];
        switch (function) {
            case 0: return Power(x, g);
            case 1: return (a != 0.0 && x >= -b / a) ? Power(a * x + b, g) : 0.0;
            case 2: return (a != 0.0 && x >= -b / a) ? Power(a * x + b, g) + c : c;
            case 3: return x >= d ? Power(a * x + b, g) : c * x;
            default: return x >= d ? Power(a * x + b, g) + e : c * x + f;
        }
    }
};

constexpr int kParaCounts[5] = {1, 3, 4, 5, 7};

// A 'curv' or 'para' element at `at`; *end receives the first byte after it.
Curve ReadCurve(const Bytes& r, size_t at, size_t* end) {
    Curve c;
    const uint32_t type = r.U32(at);
    if (type == Sig4("curv")) {
        const uint32_t n = r.U32(at + 8);
        r.Need(at + 12, size_t(n) * 2);
        *end = at + 12 + size_t(n) * 2;
        if (n == 0) return c;
        if (n == 1) {
            c.kind = Curve::Kind::kGamma;
            c.gamma = r.U16(at + 12) / 256.0;
            return c;
        }
        c.kind = Curve::Kind::kTable;
        for (uint32_t i = 0; i < n; ++i) c.table.push_back(r.U16(at + 12 + 2 * i));
        return c;
    }
    if (type == Sig4("para")) {
        c.kind = Curve::Kind::kParametric;
        c.function = r.U16(at + 8);
        if (c.function > 4) throw std::runtime_error("'para' function type " + std::to_string(c.function) + " unknown");
        const int count = kParaCounts[c.function];
        for (int i = 0; i < count; ++i) c.p[size_t(i)] = r.S15(at + 12 + 4 * size_t(i));
        *end = at + 12 + 4 * size_t(count);
        return c;
    }
    throw std::runtime_error("type " + Text(type) + " where a curve was expected");
}

// Curve sets in 'mAB '/'mBA ' follow one another, each 4-byte aligned.
std::vector<Curve> ReadCurveSet(const Bytes& r, size_t at, int count) {
    std::vector<Curve> set;
    for (int i = 0; i < count; ++i) {
        size_t end = at;
        set.push_back(ReadCurve(r, at, &end));
        at = (end + 3) & ~size_t(3);
    }
    return set;
}

std::vector<uint16_t> SampleCurve(const Curve& c, size_t n) {
    std::vector<uint16_t> t(n);
    for (size_t i = 0; i < n; ++i) t[i] = uint16_t(std::lround(c.Eval(double(i) / double(n - 1)) * 65535.0));
    return t;
}

// Lightness of a relative luminance, by the library's own constants (so its
// LabToXyz gives the luminance back).
double Lightness(double y) { return y > 0.008856 ? 116.0 * std::cbrt(y) - 16.0 : 903.3 * y; }

// ---- lookup-table pipelines --------------------------------------------------

struct Clut {
    std::vector<int> grid;  // points per input channel
    int outputs = 0;
    std::vector<double> values;  // 0..1, first input channel slowest

    // Interpolated as ICC readers commonly do (and the peer does): simplex
    // (tetrahedral) in three dimensions, linear along the first of four
    // between two such, multilinear otherwise. A coarse table differs between
    // these schemes by far more than any encoding detail, so rebuilding it
    // finely by this scheme is what keeps the library close to its peers.
    void Eval(const double* in, double* out) const {
        const size_t n = grid.size();  // at most 8 (checked when read)
        std::array<size_t, 8> stride{}, cell{};
        std::array<double, 8> frac{};
        size_t s = size_t(outputs);
        for (size_t d = n; d-- > 0;) {
            stride[d] = s;
            s *= size_t(grid[d]);
        }
        size_t base = 0;
        for (size_t d = 0; d < n; ++d) {
            const double pos = std::clamp(in[d], 0.0, 1.0) * (grid[d] - 1);
            cell[d] = grid[d] > 1 ? std::min(size_t(pos), size_t(grid[d] - 2)) : 0;
            frac[d] = grid[d] > 1 ? pos - double(cell[d]) : 0.0;
            base += cell[d] * stride[d];
        }
        if (n == 3) {
            Simplex(base, stride.data(), frac.data(), 3, out);
            return;
        }
        if (n == 4) {
            std::array<double, 16> low{}, high{};
            Simplex(base, stride.data() + 1, frac.data() + 1, 3, low.data());
            const size_t step = grid[0] > 1 ? stride[0] : 0;
            Simplex(base + step, stride.data() + 1, frac.data() + 1, 3, high.data());
            for (int o = 0; o < outputs; ++o)
                out[o] = low[size_t(o)] + (high[size_t(o)] - low[size_t(o)]) * frac[0];
            return;
        }
        for (int o = 0; o < outputs; ++o) out[o] = 0.0;
        for (size_t corner = 0; corner < (size_t(1) << n); ++corner) {
            double w = 1.0;
            size_t index = base;
            for (size_t d = 0; d < n; ++d) {
                const bool up = (corner >> (n - 1 - d)) & 1;
                w *= up ? frac[d] : 1.0 - frac[d];
                if (up && grid[d] > 1) index += stride[d];
            }
            if (w == 0.0) continue;
            for (int o = 0; o < outputs; ++o) out[o] += w * values[index + size_t(o)];
        }
    }

private:
    // The simplex of the cell at `base` that holds the point: from the
    // cell's first corner, one axis at a time in order of falling fraction.
    void Simplex(size_t base, const size_t* stride, const double* frac, size_t n, double* out) const {
        std::array<size_t, 3> order = {0, 1, 2};
        std::stable_sort(order.begin(), order.begin() + ptrdiff_t(n),
                         [frac](size_t a, size_t b) { return frac[a] > frac[b]; });
        for (int o = 0; o < outputs; ++o) out[o] = values[base + size_t(o)];
        size_t from = base;
        for (size_t k = 0; k < n; ++k) {
            const size_t d = order[k];
            const size_t to = from + (grid[grid.size() - n + d] > 1 ? stride[d] : 0);
            for (int o = 0; o < outputs; ++o)
                out[o] += frac[d] * (values[to + size_t(o)] - values[from + size_t(o)]);
            from = to;
        }
    }
};

struct Stage {
    enum class Kind { kCurves, kMatrix, kClut } kind;
    std::vector<Curve> curves;
    std::array<double, 12> matrix{};  // 3×3 row-major, then offsets
    Clut clut;

    void Eval(std::vector<double>& v) const {
        switch (kind) {
            case Kind::kCurves:
                for (size_t c = 0; c < v.size() && c < curves.size(); ++c) v[c] = curves[c].Eval(v[c]);
                break;
            case Kind::kMatrix: {
                const double x[3] = {v[0], v[1], v[2]};
                for (int r = 0; r < 3; ++r)
                    v[size_t(r)] = std::clamp(matrix[size_t(3 * r)] * x[0] + matrix[size_t(3 * r + 1)] * x[1] +
                                                  matrix[size_t(3 * r + 2)] * x[2] + matrix[size_t(9 + r)],
                                              0.0, 1.0);
                break;
            }
            case Kind::kClut: {
                if (v.size() < clut.grid.size()) throw std::runtime_error("channel counts do not chain");
                std::array<double, 16> out{};
                clut.Eval(v.data(), out.data());
                v.assign(out.begin(), out.begin() + clut.outputs);
                for (double& x : v) x = std::clamp(x, 0.0, 1.0);
                break;
            }
        }
    }
};

// How 16-bit Lab is encoded on a table's PCS side (value = code / 65535).
enum class LabCoding {
    kLegacy,   // 'mft2': L 100 = 0xFF00, a/b = code/256 − 128
    kByte,     // 'mft1' bytes, and 'mAB '/'mBA ': L 100 = full scale, a/b = v × 255 − 128
    kLibrary,  // what the library decodes: L 100 = 0xFFFF, a/b = code/256 − 128
};

double LabValue(LabCoding coding, int channel, double v) {
    if (channel == 0) return coding == LabCoding::kLegacy ? v * 65535.0 / 65280.0 * 100.0 : v * 100.0;
    return coding == LabCoding::kByte ? v * 255.0 - 128.0 : v * 65535.0 / 256.0 - 128.0;
}

double LabCode(LabCoding coding, int channel, double lab) {
    double v;
    if (channel == 0)
        v = coding == LabCoding::kLegacy ? lab / 100.0 * 65280.0 / 65535.0 : lab / 100.0;
    else
        v = coding == LabCoding::kByte ? (lab + 128.0) / 255.0 : (lab + 128.0) * 256.0 / 65535.0;
    return std::clamp(v, 0.0, 1.0);
}

struct Pipeline {
    int inputs = 0, outputs = 0;
    std::vector<Stage> stages;
    LabCoding coding = LabCoding::kLegacy;
    bool matrixOutOfOrder = false;  // an 'mft' matrix the library would apply after the input tables
};

// Largest CLUT read (values): far beyond any real profile (a 33-point
// four-ink table holds 3.6 million), small enough that the doubles fit in
// memory, and no product of up to eight grid sizes can overflow before it.
constexpr size_t kMaxClutRead = size_t(1) << 26;

size_t ClutNodes(const std::vector<int>& grid, int outputs) {
    size_t nodes = 1;
    for (int g : grid) {
        nodes *= size_t(g);
        if (nodes * size_t(outputs) > kMaxClutRead) throw std::runtime_error("CLUT too large");
    }
    return nodes;
}

Stage CurvesStage(std::vector<Curve> curves) {
    Stage s{Stage::Kind::kCurves, std::move(curves), {}, {}};
    return s;
}

// 'mft1' / 'mft2'. The matrix applies (before the input tables) only when the
// input is XYZ.
Pipeline ReadMft(const Bytes& r, size_t at, bool xyzInput) {
    const bool wide = r.U32(at) == Sig4("mft2");
    Pipeline p;
    p.inputs = r.U8(at + 8);
    p.outputs = r.U8(at + 9);
    const int grid = r.U8(at + 10);
    if (p.inputs < 1 || p.inputs > 8 || p.outputs < 1 || p.outputs > 15 || grid < 2)
        throw std::runtime_error("lookup table with " + std::to_string(p.inputs) + " inputs, " +
                                 std::to_string(p.outputs) + " outputs and " + std::to_string(grid) +
                                 " grid points");
    p.coding = wide ? LabCoding::kLegacy : LabCoding::kByte;
    Stage matrix{Stage::Kind::kMatrix, {}, {}, {}};
    bool identity = true;
    for (size_t i = 0; i < 9; ++i) {
        matrix.matrix[i] = r.S15(at + 12 + 4 * i);
        if (matrix.matrix[i] != ((i % 4 == 0) ? 1.0 : 0.0)) identity = false;
    }
    const size_t inEntries = wide ? r.U16(at + 48) : 256, outEntries = wide ? r.U16(at + 50) : 256;
    if (inEntries < 2 || outEntries < 2) throw std::runtime_error("lookup table with fewer than 2 table entries");
    size_t pos = at + (wide ? 52 : 48);
    const double scale = wide ? 65535.0 : 255.0;
    auto value = [&]() {
        const double v = wide ? r.U16(pos) / scale : r.U8(pos) / scale;
        pos += wide ? 2 : 1;
        return v;
    };
    auto tables = [&](int count, size_t entries) {
        std::vector<Curve> set;
        set.resize(size_t(count));
        for (Curve& c : set) {
            c.kind = Curve::Kind::kTable;
            for (size_t i = 0; i < entries; ++i) c.table.push_back(uint16_t(std::lround(value() * 65535.0)));
        }
        return set;
    };
    if (xyzInput && p.inputs == 3 && !identity) {
        p.stages.push_back(matrix);
        p.matrixOutOfOrder = true;
    }
    p.stages.push_back(CurvesStage(tables(p.inputs, inEntries)));
    Stage clut{Stage::Kind::kClut, {}, {}, {}};
    clut.clut.grid.assign(size_t(p.inputs), grid);
    clut.clut.outputs = p.outputs;
    const size_t nodes = ClutNodes(std::vector<int>(size_t(p.inputs), grid), p.outputs);
    r.Need(pos, nodes * size_t(p.outputs) * (wide ? 2 : 1));
    clut.clut.values.resize(nodes * size_t(p.outputs));
    for (double& v : clut.clut.values) v = value();
    p.stages.push_back(std::move(clut));
    p.stages.push_back(CurvesStage(tables(p.outputs, outEntries)));
    return p;
}

Clut ReadClut(const Bytes& r, size_t at, int inputs, int outputs) {
    Clut c;
    c.outputs = outputs;
    for (int i = 0; i < inputs; ++i) {
        const int g = r.U8(at + size_t(i));
        if (g < 1) throw std::runtime_error("CLUT with 0 grid points");
        c.grid.push_back(g);
    }
    const size_t nodes = ClutNodes(c.grid, outputs);
    const int precision = r.U8(at + 16);
    if (precision != 1 && precision != 2) throw std::runtime_error("CLUT precision " + std::to_string(precision));
    r.Need(at + 20, nodes * size_t(outputs) * size_t(precision));
    c.values.resize(nodes * size_t(outputs));
    for (size_t i = 0; i < c.values.size(); ++i)
        c.values[i] = precision == 1 ? r.U8(at + 20 + i) / 255.0 : r.U16(at + 20 + 2 * i) / 65535.0;
    return c;
}

// 'mAB ' (A curves, CLUT, M curves, matrix, B curves) and 'mBA ' (B curves,
// matrix, M curves, CLUT, A curves); any part may be absent.
Pipeline ReadMab(const Bytes& r, size_t at) {
    const bool toPcs = r.U32(at) == Sig4("mAB ");
    Pipeline p;
    p.coding = LabCoding::kByte;
    p.inputs = r.U8(at + 8);
    p.outputs = r.U8(at + 9);
    if (p.inputs < 1 || p.inputs > 8 || p.outputs < 1 || p.outputs > 15)
        throw std::runtime_error("lookup table with " + std::to_string(p.inputs) + " inputs and " +
                                 std::to_string(p.outputs) + " outputs");
    const uint32_t offB = r.U32(at + 12), offMatrix = r.U32(at + 16), offM = r.U32(at + 20), offClut = r.U32(at + 24),
                   offA = r.U32(at + 28);
    // Curves next to the PCS have as many channels as the PCS side.
    const int pcsChannels = toPcs ? p.outputs : p.inputs;
    const int deviceChannels = toPcs ? p.inputs : p.outputs;
    std::vector<Stage> deviceSide, pcsSide;
    if (offA) deviceSide.push_back(CurvesStage(ReadCurveSet(r, at + offA, deviceChannels)));
    if (offClut) {
        Stage s{Stage::Kind::kClut, {}, {}, {}};
        s.clut = ReadClut(r, at + offClut, p.inputs, p.outputs);
        deviceSide.push_back(std::move(s));
    } else if (p.inputs != p.outputs) {
        throw std::runtime_error("no CLUT between " + std::to_string(p.inputs) + " inputs and " +
                                 std::to_string(p.outputs) + " outputs");
    }
    if (offM) pcsSide.push_back(CurvesStage(ReadCurveSet(r, at + offM, pcsChannels)));
    if (offMatrix) {
        if (pcsChannels != 3) throw std::runtime_error("matrix on a " + std::to_string(pcsChannels) + "-channel side");
        Stage s{Stage::Kind::kMatrix, {}, {}, {}};
        for (size_t i = 0; i < 12; ++i) s.matrix[i] = r.S15(at + offMatrix + 4 * i);
        pcsSide.push_back(s);
    }
    if (offB) pcsSide.push_back(CurvesStage(ReadCurveSet(r, at + offB, pcsChannels)));
    if (toPcs) {
        p.stages = deviceSide;
        p.stages.insert(p.stages.end(), pcsSide.begin(), pcsSide.end());
    } else {
        // B2A runs the same parts the other way round.
        p.stages.assign(pcsSide.rbegin(), pcsSide.rend());
        p.stages.insert(p.stages.end(), deviceSide.rbegin(), deviceSide.rend());
    }
    return p;
}

Pipeline ReadPipeline(const std::vector<uint8_t>& profile, const Entry& e, bool xyzInput) {
    const Bytes r{profile};
    const uint32_t type = TypeOf(profile, e);
    if (type == Sig4("mft1") || type == Sig4("mft2")) return ReadMft(r, e.offset, xyzInput);
    if (type == Sig4("mAB ") || type == Sig4("mBA ")) return ReadMab(r, e.offset);
    throw std::runtime_error("type " + Text(type) + " is not a lookup table");
}

constexpr size_t kTableEntries = 4096;

// Grid points per dimension below which a CLUT is rebuilt finer: the
// library's own grids for three and four inputs.
int FineGrid(int inputs) { return inputs == 1 ? 255 : inputs == 3 ? 33 : 17; }

bool CoarseClut(const Pipeline& p) {
    for (const Stage& s : p.stages)
        if (s.kind == Stage::Kind::kClut)
            for (int g : s.clut.grid)
                if (g < FineGrid(p.inputs)) return true;
    return false;
}
// Largest CLUT the rebuilt table may have (values), well within what the
// library allocates without trouble.
constexpr size_t kMaxClutValues = size_t(1) << 22;

// Points per dimension of the grid the library builds over a lookup-table
// source: 32 for three inputs, 16 otherwise.
int SourceGrid(int inputs) { return inputs == 3 ? 32 : 16; }

// A piecewise-linear map of [0, 1] onto itself that takes node j of a
// `from`-point grid to node round(j × (to − 1) / (from − 1)) of a `to`-point
// grid (to > from, so the targets rise strictly).
struct Warp {
    std::vector<double> x, u;

    static double Map(const std::vector<double>& a, const std::vector<double>& b, double v) {
        v = std::clamp(v, 0.0, 1.0);
        size_t i = 0;
        while (i + 2 < a.size() && v > a[i + 1]) ++i;
        return b[i] + (v - a[i]) * (b[i + 1] - b[i]) / (a[i + 1] - a[i]);
    }
    double Forward(double v) const { return Map(x, u, v); }
    double Backward(double v) const { return Map(u, x, v); }
};

Warp MakeWarp(int from, int to) {
    Warp w;
    for (int j = 0; j < from; ++j) {
        w.x.push_back(double(j) / double(from - 1));
        w.u.push_back(std::round(double(j) * double(to - 1) / double(from - 1)) / double(to - 1));
    }
    if (from < 2) {
        w.x = {0.0, 1.0};
        w.u = {0.0, 1.0};
    }
    return w;
}

// The 'mft2' the library reads as `p` means; `pcsInput` for B2A and gamut
// tables, `labPcs` when the PCS side is Lab.
Lut Rebuild(const Pipeline& p, bool pcsInput, bool labPcs) {
    if (p.inputs > 4 || p.outputs > 4) throw std::runtime_error("more than four channels");
    const std::vector<Stage>& s = p.stages;
    size_t first = 0, last = s.size();
    const Stage* pre = nullptr;
    const Stage* post = nullptr;
    if (!s.empty() && s.front().kind == Stage::Kind::kCurves) pre = &s[first++];
    if (last > first && s.back().kind == Stage::Kind::kCurves) post = &s[--last];

    int grid = 0;
    const Clut* clut = nullptr;
    for (size_t i = first; i < last; ++i) {
        if (s[i].kind != Stage::Kind::kClut) continue;
        clut = &s[i].clut;
        for (int g : clut->grid) grid = std::max(grid, g);
    }
    // Between the curve sets the pipeline is sampled on a grid at least as
    // fine as the library's own; a CLUT that fine already keeps its nodes.
    const int fine = FineGrid(p.inputs);
    std::vector<Warp> warps;
    if (first == last) {
        grid = 2;
    } else if (!pcsInput && clut && (p.inputs == 3 || p.inputs == 4) && grid < SourceGrid(p.inputs)) {
        // A coarse device-side table: the library samples it at its own grid
        // nodes, which fall between the table's nodes and so cut across
        // whatever bends there. The input tables move each node of the table
        // onto a node of the library's grid instead.
        grid = SourceGrid(p.inputs);
        for (int g : clut->grid) warps.push_back(MakeWarp(g, grid));
    } else {
        grid = std::max(grid, fine);
    }
    grid = std::clamp(grid, 2, 255);
    size_t nodes = 1;
    for (int i = 0; i < p.inputs; ++i) nodes *= size_t(grid);
    if (nodes * size_t(p.outputs) > kMaxClutValues) throw std::runtime_error("CLUT too large to rebuild");

    Lut lut;
    lut.inputChannels = uint8_t(p.inputs);
    lut.outputChannels = uint8_t(p.outputs);
    lut.gridPoints = uint8_t(grid);
    for (int c = 0; c < p.inputs; ++c) {
        std::vector<uint16_t> t(kTableEntries);
        for (size_t i = 0; i < kTableEntries; ++i) {
            double v = double(i) / double(kTableEntries - 1);
            if (pcsInput && labPcs) v = LabCode(p.coding, c, LabValue(LabCoding::kLibrary, c, v));
            if (pre) v = pre->curves[size_t(c)].Eval(v);
            if (!warps.empty()) v = warps[size_t(c)].Forward(v);
            t[i] = uint16_t(std::lround(std::clamp(v, 0.0, 1.0) * 65535.0));
        }
        lut.inputTables.push_back(std::move(t));
    }
    lut.clut.resize(nodes * size_t(p.outputs));
    std::vector<double> v;
    for (size_t n = 0; n < nodes; ++n) {
        v.assign(size_t(p.inputs), 0.0);
        size_t rest = n;
        for (int d = p.inputs - 1; d >= 0; --d) {
            v[size_t(d)] = double(rest % size_t(grid)) / double(grid - 1);
            if (!warps.empty()) v[size_t(d)] = warps[size_t(d)].Backward(v[size_t(d)]);
            rest /= size_t(grid);
        }
        for (size_t i = first; i < last; ++i) s[i].Eval(v);
        if (int(v.size()) != p.outputs) throw std::runtime_error("channel counts do not chain");
        for (int o = 0; o < p.outputs; ++o)
            lut.clut[n * size_t(p.outputs) + size_t(o)] = uint16_t(std::lround(std::clamp(v[size_t(o)], 0.0, 1.0) * 65535.0));
    }
    for (int c = 0; c < p.outputs; ++c) {
        std::vector<uint16_t> t(kTableEntries);
        for (size_t i = 0; i < kTableEntries; ++i) {
            double x = double(i) / double(kTableEntries - 1);
            if (post) x = post->curves[size_t(c)].Eval(x);
            if (!pcsInput && labPcs) x = LabCode(LabCoding::kLibrary, c, LabValue(p.coding, c, x));
            t[i] = uint16_t(std::lround(std::clamp(x, 0.0, 1.0) * 65535.0));
        }
        lut.outputTables.push_back(std::move(t));
    }
    return lut;
}

bool IsLutTag(uint32_t sig) {
    switch (sig) {
        case Sig4("A2B0"): case Sig4("A2B1"): case Sig4("A2B2"):
        case Sig4("B2A0"): case Sig4("B2A1"): case Sig4("B2A2"): case Sig4("gamt"):
            return true;
        default:
            return false;
    }
}

bool PcsIsInput(uint32_t sig) { return sig != Sig4("A2B0") && sig != Sig4("A2B1") && sig != Sig4("A2B2"); }

// The builders' intent code for a toolbox intent: 2 and 3 trade places.
int BuilderIntent(int toolboxIntent) {
    if (toolboxIntent == 2) return 3;
    if (toolboxIntent == 3) return 2;
    return toolboxIntent;
}

uint32_t LutSignature(Role role, int builderIntent) {
    const int digit = builderIntent == 1 || builderIntent == 3 ? 1 : builderIntent == 2 ? 2 : 0;
    return (role == Role::kSource ? Sig4("A2B0") : Sig4("B2A0")) + uint32_t(digit);
}

// Why the library cannot read the curve tag `sig`, or "".
std::string CurveProblem(const std::vector<uint8_t>& profile, const Parsed& p, uint32_t sig, Role role) {
    const Entry* e = p.Find(sig);
    if (!e) return Text(sig) + " missing";
    const uint32_t type = TypeOf(profile, *e);
    if (type != Sig4("curv")) {
        std::string text = Text(type);
        text += " curve in ";
        for (int shift = 24; shift >= 0; shift -= 8) text += char(sig >> shift);
        return text;
    }
    const Bytes r{profile};
    try {
        size_t end = 0;
        const Curve c = ReadCurve(r, e->offset, &end);
        if (role == Role::kDestination && c.kind == Curve::Kind::kGamma && c.gamma == 0.0)
            return Text(sig) + " has gamma 0, which cannot be inverted";
    } catch (const std::exception& ex) {
        return Text(sig) + " unreadable: " + ex.what();
    }
    return "";
}

std::string LutProblem(const std::vector<uint8_t>& profile, const Parsed& p, uint32_t sig, int toolboxIntent) {
    const Entry* e = p.Find(sig);
    if (!e) {
        std::string text = Text(sig);
        text += " missing for ";
        text += IntentName(toolboxIntent);
        bool first = true;
        for (const Entry& t : p.tags) {
            if (!IsLutTag(t.signature) || t.signature == Sig4("gamt")) continue;
            text += first ? "; the profile has only " : "/";
            first = false;
            for (int shift = 24; shift >= 0; shift -= 8) text += char(t.signature >> shift);
        }
        return text;
    }
    const uint32_t type = TypeOf(profile, *e);
    if (type != Sig4("mft1") && type != Sig4("mft2"))
        return Text(sig) + " is of type " + Text(type) + " (the library reads 'mft1' and 'mft2')";
    const Bytes r{profile};
    try {
        const int in = r.U8(e->offset + 8), out = r.U8(e->offset + 9);
        if (in > 4 || out > 4)
            return Text(sig) + " has " + std::to_string(in) + " inputs and " + std::to_string(out) +
                   " outputs (the library takes at most 4)";
    } catch (const std::exception&) {
        return Text(sig) + " cut short";
    }
    return "";
}

}  // namespace

int ColourChannels(uint32_t space) {
    switch (space) {
        case Sig4("GRAY"): return 1;
        case Sig4("RGB "): case Sig4("Lab "): case Sig4("XYZ "): case Sig4("Luv "): case Sig4("YCbr"):
        case Sig4("Yxy "): case Sig4("HSV "): case Sig4("HLS "): case Sig4("CMY "):
            return 3;
        case Sig4("CMYK"): return 4;
        default: return 0;
    }
}

const char* IntentName(int toolboxIntent) {
    switch (toolboxIntent) {
        case 0: return "perceptual";
        case 1: return "relative colorimetric";
        case 2: return "absolute colorimetric";
        case 3: return "saturation";
        default: return "an unknown intent";
    }
}

std::string LibraryProblem(const std::vector<uint8_t>& profile, Role role, int toolboxIntent) {
    Parsed p;
    try {
        p = Parse(profile);
    } catch (const std::exception& e) {
        return e.what();
    }
    switch (p.deviceClass) {
        case Sig4("nmcl"): return "named-colour profile: it lists colours by name ('ncl2'), with no conversion of device values";
        case Sig4("link"): return "device link: it joins two devices, the library takes one profile per side";
        case Sig4("abst"): return "abstract profile: it maps PCS to PCS, with no device values";
        default: break;
    }
    if (p.pcs != Sig4("XYZ ") && p.pcs != Sig4("Lab ") && p.pcs != Sig4("Lch "))
        return "connection space " + Text(p.pcs) + " (the library takes 'XYZ ' or 'Lab ')";
    if (ColourChannels(p.colorSpace) == 0) return "colour space " + Text(p.colorSpace) + " is not one the library handles";
    if (p.colorSpace == Sig4("GRAY")) return CurveProblem(profile, p, Sig4("kTRC"), role);

    const int builderIntent = p.deviceClass == Sig4("prtr") ? BuilderIntent(toolboxIntent) : 0;
    const uint32_t lutSig = LutSignature(role, builderIntent);
    const std::string lut = LutProblem(profile, p, lutSig, toolboxIntent);
    if (lut.empty()) return "";
    bool anyLut = false, anyMatrix = false;
    for (const Entry& t : p.tags) {
        anyLut = anyLut || (IsLutTag(t.signature) && t.signature != Sig4("gamt"));
        for (uint32_t m : {Sig4("rTRC"), Sig4("gTRC"), Sig4("bTRC"), Sig4("rXYZ"), Sig4("gXYZ"), Sig4("bXYZ")})
            anyMatrix = anyMatrix || t.signature == m;
    }
    std::string matrix;
    for (uint32_t sig : {Sig4("rTRC"), Sig4("gTRC"), Sig4("bTRC")}) {
        matrix = CurveProblem(profile, p, sig, role);
        if (!matrix.empty()) break;
    }
    for (uint32_t sig : {Sig4("rXYZ"), Sig4("gXYZ"), Sig4("bXYZ")}) {
        if (!matrix.empty()) break;
        const Entry* e = p.Find(sig);
        if (!e) matrix = Text(sig) + " missing";
        else if (TypeOf(profile, *e) != Sig4("XYZ ")) matrix = Text(sig) + " is of type " + Text(TypeOf(profile, *e));
    }
    if (matrix.empty()) return "";
    if (!anyMatrix) return lut;
    if (!anyLut) return matrix;
    return lut + "; no matrix/TRC to fall back on: " + matrix;
}

std::string LibraryMisreading(const std::vector<uint8_t>& profile) {
    Parsed p;
    try {
        p = Parse(profile);
    } catch (const std::exception&) {
        return "";
    }
    if (p.colorSpace == Sig4("GRAY") && p.pcs == Sig4("XYZ "))
        return "grey profile with an XYZ connection space: the library takes the grey level as the XYZ code "
               "(Y doubled)";
    if (p.pcs == Sig4("Lab ")) {
        for (const Entry& e : p.tags) {
            if (!IsLutTag(e.signature)) continue;
            const uint32_t type = TypeOf(profile, e);
            if (type == Sig4("mft2"))
                return Text(e.signature) + " holds 16-bit Lab with L 100 at 0xFF00; the library reads L 0.4 % low";
            if (type == Sig4("mft1"))
                return Text(e.signature) + " holds 8-bit Lab; the library reads a* and b* up to 1 unit off";
        }
    }
    return "";
}

std::vector<uint16_t> GammaLightnessTable(double gamma) {
    Curve c;
    c.kind = Curve::Kind::kGamma;
    c.gamma = gamma;
    std::vector<uint16_t> t(kTableEntries);
    for (size_t i = 0; i < kTableEntries; ++i)
        t[i] = uint16_t(std::lround(Lightness(c.Eval(double(i) / double(kTableEntries - 1))) / 100.0 * 65535.0));
    return t;
}

Prepared Prepare(const std::vector<uint8_t>& profile) {
    const Parsed p = Parse(profile);
    const Bytes r{profile};
    Prepared result;
    // Nothing to translate in profiles without a device side of their own:
    // the check refuses them as they are.
    if (p.deviceClass == Sig4("nmcl") || p.deviceClass == Sig4("abst") || p.deviceClass == Sig4("link")) {
        result.bytes = profile;
        return result;
    }
    ProfileWriter w;
    Header& h = w.header;
    h.cmmType = p.cmm;
    h.version = 0x02100000;
    h.deviceClass = p.deviceClass;
    h.colorSpace = p.colorSpace;
    h.pcs = p.pcs;
    for (size_t i = 0; i < 6; ++i) h.dateTime[i] = r.U16(24 + 2 * i);
    h.platform = r.U32(40);
    h.flags = r.U32(44);
    h.manufacturer = r.U32(48);
    h.model = r.U32(52);
    h.attributes[0] = r.U32(56);
    h.attributes[1] = r.U32(60);
    h.renderingIntent = r.U32(64);
    for (size_t i = 0; i < 3; ++i) h.illuminant[i] = r.S15(68 + 4 * i);
    h.creator = r.U32(80);

    const bool grey = p.colorSpace == Sig4("GRAY");
    const bool xyzGrey = grey && p.pcs == Sig4("XYZ ");
    if (xyzGrey) {
        h.pcs = Sig4("Lab ");
        result.changes.push_back("connection space 'XYZ ' -> 'Lab ' (grey)");
    }
    const bool labPcs = h.pcs == Sig4("Lab ");

    // Elements are written once per (offset, side): tags that share an
    // element share its rewrite.
    std::map<std::pair<uint32_t, bool>, uint32_t> written;
    std::set<uint32_t> present, added;
    bool rewrote = xyzGrey;
    for (const Entry& e : p.tags) {
        if (!present.insert(e.signature).second) continue;  // the library reads the first of duplicates
        const bool pcsSide = IsLutTag(e.signature) && PcsIsInput(e.signature);
        const auto key = std::make_pair(e.offset, pcsSide);
        if (auto it = written.find(key); it != written.end()) {
            w.AddLinkedTag(e.signature, it->second);
            added.insert(e.signature);
            continue;
        }
        const uint32_t type = TypeOf(profile, e);
        const std::string name = Text(e.signature);
        std::vector<uint8_t> element;
        bool rewritten = false;
        try {
            if (e.signature == Sig4("kTRC") && (type == Sig4("curv") || type == Sig4("para")) &&
                (xyzGrey || type == Sig4("para"))) {
                size_t end = 0;
                const Curve c = ReadCurve(r, e.offset, &end);
                std::vector<uint16_t> t(kTableEntries);
                for (size_t i = 0; i < kTableEntries; ++i) {
                    const double y = c.Eval(double(i) / double(kTableEntries - 1));
                    const double v = xyzGrey ? Lightness(y) / 100.0 : y;
                    t[i] = uint16_t(std::lround(std::clamp(v, 0.0, 1.0) * 65535.0));
                }
                element = CurvElement(t);
                result.changes.push_back(name + (xyzGrey ? " as lightness" : " 'para' sampled into 'curv'"));
                rewritten = true;
            } else if ((e.signature == Sig4("rTRC") || e.signature == Sig4("gTRC") || e.signature == Sig4("bTRC") ||
                        e.signature == Sig4("kTRC")) &&
                       type == Sig4("para")) {
                size_t end = 0;
                element = CurvElement(SampleCurve(ReadCurve(r, e.offset, &end), kTableEntries));
                result.changes.push_back(name + " 'para' sampled into 'curv'");
                rewritten = true;
            } else if (IsLutTag(e.signature) && !grey) {
                const bool pcsInput = PcsIsInput(e.signature);
                const bool xyzInput = pcsInput ? p.pcs == Sig4("XYZ ") : p.colorSpace == Sig4("XYZ ");
                const Pipeline pipe = ReadPipeline(profile, e, xyzInput);
                const bool v4 = type == Sig4("mAB ") || type == Sig4("mBA ");
                const bool coarse = CoarseClut(pipe);
                if (v4 || labPcs || pipe.matrixOutOfOrder || coarse) {
                    element = Mft2Element(Rebuild(pipe, pcsInput, labPcs));
                    std::string why = labPcs && !v4 ? " in the library's Lab encoding" : "";
                    if (coarse) why += why.empty() ? " on a finer grid" : ", on a finer grid";
                    if (pipe.matrixOutOfOrder) why += ", matrix first";
                    result.changes.push_back(name + " " + Text(type) + " rebuilt as 'mft2'" + why);
                    rewritten = true;
                }
            }
        } catch (const std::exception& ex) {
            // Left as it is: the check names the tag when the library needs it.
            result.changes.push_back(name + " left as it is (" + ex.what() + ")");
        }
        if (!rewritten) {
            if (e.offset > profile.size() || e.size > profile.size() - e.offset || e.size < 4) {
                result.changes.push_back(name + " dropped: outside the file");
                continue;
            }
            element.assign(profile.begin() + e.offset, profile.begin() + e.offset + e.size);
        }
        rewrote = rewrote || rewritten;
        w.AddTag(e.signature, std::move(element));
        written[key] = e.signature;
        added.insert(e.signature);
    }

    // ICC: a profile without the intent's table uses A2B0/B2A0.
    for (const char* base : {"A2B", "B2A"}) {
        const uint32_t zero = (uint32_t(uint8_t(base[0])) << 24) | (uint32_t(uint8_t(base[1])) << 16) |
                              (uint32_t(uint8_t(base[2])) << 8) | uint32_t('0');
        if (!added.count(zero) || p.deviceClass != Sig4("prtr")) continue;
        for (uint32_t digit = 1; digit <= 2; ++digit) {
            if (present.count(zero + digit)) continue;
            w.AddLinkedTag(zero + digit, zero);
            result.changes.push_back(Text(zero + digit) + " missing: uses " + Text(zero));
            rewrote = true;
        }
    }

    // Tags left alone or dropped are remarks: without a rewrite the library
    // gets the file as it is.
    if (!rewrote) {
        result.bytes = profile;
        return result;
    }
    result.bytes = w.Bytes();
    return result;
}

}  // namespace tintra3::icc
