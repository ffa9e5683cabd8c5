#include "grabsystem/preview/image_sheet.h"

#include <cctype>
#include <cstdio>
#include <memory>

#include "grabsystem/capture/image_file.h"
#include "grabsystem/format/info_block.h"
#include "grabsystem/image/grey_render.h"
#include "grabsystem/platform/toolkit/win_helper.h"
#include "grabsystem/preview/compose.h"

namespace GrabSystem {
namespace preview {

namespace {

// The font has capitals only.
std::string Capitals(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::string Fixed(double v) {
    char text[64];
    std::snprintf(text, sizeof text, "%g", v);
    return text;
}

// The pixels of an image as the sheet shows them: grey or RGB bytes.
struct Shown {
    std::vector<uint8_t> owned;
    const uint8_t* pixels = nullptr;
    uint32_t channels = 1;
};

bool ShowPixels(IImgP& img, bool values, Shown& shown, std::string& error) {
    const uint64_t n = img.GetArea();
    const uint32_t ch = img.GetChCnt(), bytes = img.GetBytePerCh();
    if (img.GetMemSize() < n * ch * bytes || (n != 0 && img.GetData() == nullptr)) {
        error = "the image holds fewer pixels than its size";
        return false;
    }
    const unsigned char* data = img.GetImg();
    if (bytes == 1 && !values) {
        if (ch == 1) {
            shown.pixels = data;
            return true;
        }
        if (ch != 3 && ch != 4) {
            error = "an 8-bit image of " + Num(ch) + " channels (only 1, 3 and 4 are shown)";
            return false;
        }
        shown.owned.resize(n * 3);
        for (uint64_t i = 0; i < n; ++i)
            for (uint32_t c = 0; c < 3; ++c) shown.owned[i * 3 + c] = data[i * ch + 2 - c];  // BGR(A) to RGB
        shown.pixels = shown.owned.data();
        shown.channels = 3;
        return true;
    }
    if (ch != 1) {
        error = "an image of " + Num(ch) + " channels of " + Num(img.GetBitPerCh()) + " bits (shown only with one)";
        return false;
    }
    shown.owned.resize(n);
    if (values && bytes == 4) StretchToGrey(reinterpret_cast<const float*>(data), n, shown.owned.data());
    else if (values && bytes == 8) StretchToGrey(reinterpret_cast<const double*>(data), n, shown.owned.data());
    else if (bytes == 2) StretchToGrey(reinterpret_cast<const uint16_t*>(data), n, shown.owned.data());
    else if (bytes == 4) StretchToGrey(reinterpret_cast<const uint32_t*>(data), n, shown.owned.data());
    else {
        error = "an image of " + Num(img.GetBitPerCh()) + " bits per channel";
        return false;
    }
    shown.pixels = shown.owned.data();
    return true;
}

}  // namespace

Status ImageSheet(const std::string& path, format::Bytes file, capture::FileKind kind, const SheetOptions& o,
                  Sheet& sheet, platform::Env* env) {
    const bool values = kind == capture::FileKind::kFloatRaw || kind == capture::FileKind::kDoubleRaw;
    std::unique_ptr<IImgP> img;
    const Status read = values ? capture::ReadValueRawFile(path, kind == capture::FileKind::kFloatRaw ? 4 : 8, img, env)
                               : capture::ReadImageFile(path, img, env);
    if (!read.ok()) return read;
    std::string error;
    Shown shown;
    if (!ShowPixels(*img, values, shown, error)) return Status::Corruption(path, error);

    CImgInfo block;
    const bool hasBlock = format::DecodeInfoBlockAtEnd(file, block) == format::Status::kOk;
    CImgInfo& info = img->GetInfo();
    Row row;
    row.label.push_back(Label{{Capitals(capture::FileKindName(kind)),
                               Num(img->GetWidth()) + " X " + Num(img->GetHeight()) + " X " + Num(img->GetChCnt()),
                               Num(img->GetBitPerCh()) + " BIT"}});
    if (hasBlock)
        row.label.push_back(Label{{"CAM " + Num(info.camIdx), "ATTR " + Num(info.frameAttr),
                                   "FORMAT " + Capitals(capture::ImageFormatName(info.fileFormat)),
                                   "MODE " + Num(info.memMode)}});
    else
        row.label.push_back(Label{{"NO INFORMATION BLOCK"}});
    const ImgRes& res = info.resolution;
    row.label.push_back(Label{{"RES " + Fixed(res.dX) + " " + Fixed(res.dY) + " " + Fixed(res.dZ)}});
    FrameRef f;
    f.pixels = shown.pixels;
    f.width = img->GetWidth();
    f.height = img->GetHeight();
    f.channels = shown.channels;
    f.name = DrasselSpace::CWinHelper::GetFileNameWithoutExtension(path);
    row.frames.push_back(f);
    if (!Compose({row}, o.imageWidth, o, sheet, error)) return Status::Corruption(path, error);
    return Status::OK();
}

}  // namespace preview
}  // namespace GrabSystem
