#include "grabsystem/preview/thumbnail.h"

#include <algorithm>
#include <new>

namespace GrabSystem {
namespace preview {

FrameStats MeasureFrame(const uint8_t* pixels, uint64_t values) {
    FrameStats s;
    if (values == 0) return s;
    uint64_t sum = 0, zeros = 0, full = 0;
    for (uint64_t i = 0; i < values; ++i) {
        sum += pixels[i];
        zeros += pixels[i] == 0;
        full += pixels[i] == 255;
    }
    const auto n = static_cast<double>(values);
    s.mean = static_cast<double>(sum) / n;
    s.zeroShare = static_cast<double>(zeros) / n;
    s.fullShare = static_cast<double>(full) / n;
    return s;
}

bool Downscale(const uint8_t* pixels, uint32_t width, uint32_t height, uint32_t channels, uint32_t tw, uint32_t th,
               uint8_t* out) {
    if (tw == 0 || th == 0 || tw > width || th > height || channels == 0 || pixels == nullptr) return false;
    // In units of 1 / (width x tw) of a row, source pixel x covers
    // [x tw, (x + 1) tw) and thumbnail pixel X covers [X width, (X + 1) width):
    // as tw <= width, each source pixel falls into one or two of them.
    std::vector<uint32_t> firstX(width), firstWeight(width);
    for (uint32_t x = 0; x < width; ++x) {
        const uint64_t lo = uint64_t{x} * tw;
        firstX[x] = static_cast<uint32_t>(lo / width);
        firstWeight[x] = static_cast<uint32_t>(std::min<uint64_t>(lo + tw, (uint64_t{firstX[x]} + 1) * width) - lo);
    }
    const size_t line = size_t{tw} * channels;
    std::vector<uint64_t> sums(line), cur(line, 0), next(line, 0);
    const uint64_t area = uint64_t{width} * height;
    uint32_t y0 = 0;
    auto flush = [&] {
        for (size_t i = 0; i < line; ++i) out[y0 * line + i] = static_cast<uint8_t>((cur[i] + area / 2) / area);
        cur.swap(next);
        std::fill(next.begin(), next.end(), 0);
        ++y0;
    };
    for (uint32_t y = 0; y < height; ++y) {
        const uint64_t lo = uint64_t{y} * th;
        const auto outY = static_cast<uint32_t>(lo / height);
        const uint64_t upper = std::min<uint64_t>(lo + th, (uint64_t{outY} + 1) * height) - lo;
        while (y0 < outY) flush();
        std::fill(sums.begin(), sums.end(), 0);
        const uint8_t* src = pixels + uint64_t{y} * width * channels;
        for (uint32_t x = 0; x < width; ++x) {
            const size_t at = size_t{firstX[x]} * channels;
            const uint32_t w0 = firstWeight[x], w1 = tw - w0;
            for (uint32_t c = 0; c < channels; ++c) {
                const uint64_t p = src[size_t{x} * channels + c];
                sums[at + c] += p * w0;
                if (w1 != 0) sums[at + channels + c] += p * w1;
            }
        }
        for (size_t i = 0; i < line; ++i) {
            cur[i] += sums[i] * upper;
            if (upper != th) next[i] += sums[i] * (th - upper);
        }
    }
    while (y0 < th) flush();
    return true;
}

bool MakeThumb(const FrameRef& f, uint32_t cellWidth, std::vector<uint8_t>& thumb, uint32_t& tw, uint32_t& th,
               FrameStats& stats) {
    ThumbnailSize(f.width, f.height, cellWidth, tw, th);
    const uint64_t values = uint64_t{f.width} * f.height * f.channels;
    stats = f.measured ? f.stats : MeasureFrame(f.pixels, values);
    if (tw == 0) return true;
    try {
        thumb.resize(uint64_t{tw} * th * f.channels);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return Downscale(f.pixels, f.width, f.height, f.channels, tw, th, thumb.data());
}

}  // namespace preview
}  // namespace GrabSystem
