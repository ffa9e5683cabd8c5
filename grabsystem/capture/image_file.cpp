#include "grabsystem/capture/image_file.h"

#include "grabsystem/capture/file_kind.h"
#include "grabsystem/format/bmp.h"
#include "grabsystem/format/info_block.h"
#include "grabsystem/format/raw_image.h"
#include "grabsystem/format/value_raw.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/tracking_env.h"

namespace GrabSystem {
namespace capture {

using VormexDataStructure::CImgInfo;

namespace {

// Loads `image` through `env`; the image classes answer only true or
// false, so what the file met on the way is kept by a TrackingEnv.
Status Load(const std::string& path, IImgP& image, platform::Env* env, bool (*load)(IImgP&, const std::string&),
            const std::string& refusal) {
    platform::TrackingEnv reads(platform::Env::Or(env));
    image.SetEnv(&reads);
    const bool loaded = load(image, path);
    image.SetEnv(env);
    if (!reads.ok()) return reads.status();
    return loaded ? Status::OK() : Status::Corruption(path, refusal);
}

}  // namespace

Status ReadImageFile(const std::string& path, std::unique_ptr<IImgP>& image, platform::Env* env) {
    std::unique_ptr<uint8_t[]> data;
    uint64_t size = 0;
    const Status read = platform::Env::Or(env)->ReadFile(path, data, size);
    if (!read.ok()) return read;
    const format::Bytes file(data.get(), static_cast<size_t>(size));
    const FileKind kind = IdentifyFile(path, file);
    std::unique_ptr<IImgP> img;
    if (kind == FileKind::kBmpImage) {
        format::BmpLayout layout;
        const format::Status status = format::DecodeBmpLayout(file, layout);
        if (status != format::Status::kOk) return Status::Corruption(path, std::string("BMP: ") + format::Describe(status));
        img = std::make_unique<CImg8P>();
    } else if (kind == FileKind::kRawImage) {
        format::RawImageView raw;
        const format::Status status = format::DecodeRawImage(file, raw);
        if (status != format::Status::kOk) return Status::Corruption(path, std::string("raw image: ") + format::Describe(status));
        if (!raw.complete) return Status::Corruption(path, "raw image: the pixels end early");
        const uint8_t bits = raw.size.GetBitPerChannel();
        if (bits <= 8) img = std::make_unique<CImg8P>();
        else if (bits <= 16) img = std::make_unique<CImg16P>();
        else if (bits <= 32) img = std::make_unique<CImg32P>();
        else return Status::Corruption(path, "raw image: " + std::to_string(bits) + " bits per channel");
    } else if (kind == FileKind::kInfoImage) {
        CImgInfo block;
        format::DecodeInfoBlockAtEnd(file, block);
        return Status::Corruption(path, block.fileFormat == VormexDataStructure::eImgFmtBmp
                                            ? "the information block names a BMP, but the file does not start as one"
                                            : std::string("a ") + ImageFormatName(block.fileFormat) +
                                                  " image: only raw and BMP images are read");
    } else {
        return Status::Corruption(path, kind == FileKind::kUnknown
                                            ? "not a file of this system, nor a raw or BMP image"
                                            : std::string(FileKindName(kind)) + " file, not a raw or BMP image");
    }
    data.reset();
    const Status loaded = Load(path, *img, env, [](IImgP& i, const std::string& p) { return i.LoadFile(p.c_str()); },
                               "the image does not load (an extension other than .bmp or .raw, and no information block?)");
    if (!loaded.ok()) return loaded;
    image = std::move(img);
    return Status::OK();
}

Status ReadValueRawFile(const std::string& path, uint32_t valueBytes, std::unique_ptr<IImgP>& image,
                        platform::Env* env) {
    std::unique_ptr<uint8_t[]> data;
    uint64_t size = 0;
    const Status read = platform::Env::Or(env)->ReadFile(path, data, size);
    if (!read.ok()) return read;
    if (size < format::kValueRawHeaderBytes) return Status::Corruption(path, "float raw: shorter than its header");
    const format::ValueRawView view = format::DecodeValueRaw(format::Bytes(data.get(), static_cast<size_t>(size)));
    const uint64_t values = uint64_t{view.width} * view.height * view.channels;
    if (valueBytes == 0) valueBytes = values != 0 && values * 8 == view.values.size ? 8 : 4;
    if (view.values.size != values * valueBytes)
        return Status::Corruption(path, "float raw: " + std::to_string(view.values.size) + " bytes of values for " +
                                            std::to_string(view.width) + " x " + std::to_string(view.height) + " x " +
                                            std::to_string(view.channels));
    data.reset();
    std::unique_ptr<IImgP> img;
    Status loaded;
    if (valueBytes == 8) {
        img = std::make_unique<CImgDoubleP>();
        loaded = Load(path, *img, env,
                      [](IImgP& i, const std::string& p) { return static_cast<CImgDoubleP&>(i).LoadFromRaw(p); },
                      "float raw: the image cannot be sized");
    } else {
        img = std::make_unique<CImgFloatP>();
        loaded = Load(path, *img, env,
                      [](IImgP& i, const std::string& p) { return static_cast<CImgFloatP&>(i).LoadFromRaw(p); },
                      "float raw: the image cannot be sized");
    }
    if (!loaded.ok()) return loaded;
    image = std::move(img);
    return Status::OK();
}

}  // namespace capture
}  // namespace GrabSystem
