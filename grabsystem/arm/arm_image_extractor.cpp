#include "grabsystem/arm/arm_image_extractor.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"
#include "grabsystem/platform/toolkit/win_helper.h"

namespace GrabSystem {

using DrasselSpace::CWinHelper;
using DrasselSpace::FileToolP;

namespace {

constexpr uint32_t kHeaderBytes = COneViewArmImageData::kHeaderBytes;
constexpr uint32_t kRecordBytes = COneViewArmImageData::kRecordHeaderBytes;
constexpr int kMaxCameras = 8;
// LZ4 cannot expand a block by more than this factor; a frame that would
// need more pixels than its file could hold is a lying header.
constexpr uint64_t kMaxLz4Ratio = 255;

std::string WithTrailingBackslash(std::string dir) {
    if (dir.empty() || dir.back() != '\\') dir += '\\';
    return dir;
}

uint32_t ReadU32(const unsigned char* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

}  // namespace

ArmImageExtractor::ArmImageExtractor() {
    for (int k = 0; k < 12; ++k) m_frameNumbers[k] = (k + 4) % 12;
}

ArmImageExtractor::~ArmImageExtractor() = default;

int ArmImageExtractor::_FrameNumber(int k) const {
    // A key outside 0..11 maps to 0, as a map subscript would, but without
    // inserting: the table stays read-only for threads that share it.
    const auto it = m_frameNumbers.find(k);
    return it == m_frameNumbers.end() ? 0 : it->second;
}

bool ArmImageExtractor::ParseArmRawFile(std::string directory, std::vector<int>& views) {
    views.clear();
    std::vector<std::string> paths;
    if (!CWinHelper::GetDirectoryAllFilePath(directory, paths)) return false;
    size_t armFiles = 0;
    for (const std::string& path : paths) {
        if (CWinHelper::GetFileExtension(path) != ".armraw") continue;
        ++armFiles;
        const std::string name = CWinHelper::GetFileNameWithoutExtension(path);
        if (DrasselSpace::StringToolP::IsNumber(name)) views.push_back(std::atoi(name.c_str()));
    }
    return armFiles != 0 && armFiles == views.size();
}

bool ArmImageExtractor::OutputOneViewArmImages(OutputOneViewArmImageParm parm, std::vector<int>* failedViews,
                                               unsigned char sourceCount) {
    if (failedViews == nullptr) return false;
    for (unsigned i = 0; i < sourceCount; ++i) {
        failedViews[i].clear();
        if (i >= 3 || parm.views[i].empty()) continue;
        const std::string input = WithTrailingBackslash(parm.inputDirs[i]);
        if (!FileToolP::IsDirectoryExists(input)) continue;
        const std::string output = WithTrailingBackslash(parm.outputDir);
        if (!FileToolP::IsDirectoryExists(output) && !FileToolP::CreateDirectoryRecursively(output)) continue;
        for (int view : parm.views[i])
            if (!_Extract({view, input, output, parm.mode})) failedViews[i].push_back(view);
    }
    return true;
}

bool ArmImageExtractor::_Extract(ExtractArmImageParam param) {
    const std::string path = param.inputDir + std::to_string(param.viewIdx) + ".armraw";
    if (!FileToolP::FileExists(path)) return false;
    unsigned char* raw = nullptr;
    unsigned long long size = 0;
    if (!FileToolP::LoadDataFromFile(path, raw, size)) return false;
    const std::unique_ptr<unsigned char[]> file(raw);
    if (size < kHeaderBytes) return false;

    OneViewArmImageDataHeader header;
    std::memcpy(&header, file.get(), sizeof header);
    const uint64_t frameCount = uint64_t{header.sinFrameCount} + header.whiteFrameCount;
    // Every frame needs at least its record header in the file, and no frame
    // can decode to more than LZ4's largest expansion of the whole file.
    const uint64_t pixels = uint64_t{header.width} * header.height;
    if (frameCount > (size - kHeaderBytes) / kRecordBytes) return false;
    if (frameCount != 0 && (pixels > size * kMaxLz4Ratio || pixels > INT32_MAX)) return false;

    std::vector<std::unique_ptr<IImgP>> owned;
    std::vector<IImgP*> frames;
    uint64_t at = kHeaderBytes;
    for (uint64_t f = 0; f < frameCount; ++f) {
        if (size - at < kRecordBytes) break;
        const uint32_t n = ReadU32(file.get() + at + 4);
        auto* img = new CImg8P;
        owned.emplace_back(img);
        img->GetInfo().size.SetBitPerChannel(8);
        frames.push_back(img);
        if (!img->SetSize(header.width, header.height, 1, false)) break;
        // Only the bytes that are in the file are handed to the decoder.
        const uint64_t available = size - at - kRecordBytes;
        const int length = static_cast<int>(n < available ? n : available);
        const int decoded = DrasselSpace::CLZ4DecompressorP::DecompressRaw(
            file.get() + at + kRecordBytes, length, img->GetImg(), static_cast<int>(img->GetMemSize()));
        if (static_cast<uint64_t>(decoded) < img->GetMemSize())
            std::memset(img->GetImg() + decoded, 0, img->GetMemSize() - static_cast<uint64_t>(decoded));
        const bool last = f + 1 == frameCount;
        if (decoded == 0 || last) {
            // A failure of any frame but the last leaves the vector short.
            if (decoded == 0 && !last) frames.pop_back();
            break;
        }
        at += kRecordBytes + n;
        if (at > size) break;
    }
    if (frames.size() != frameCount) return false;
    return _Save(frames, param, header);
}

bool ArmImageExtractor::_IsPDir(std::string dirPath) const {
    for (int n = 0; n < kMaxCameras; ++n)
        if (dirPath.find("Cam" + std::to_string(n) + "P") != std::string::npos) return true;
    return false;
}

bool ArmImageExtractor::_Save(std::vector<IImgP*>& frames, ExtractArmImageParam param,
                              OneViewArmImageDataHeader header) {
    const uint64_t sinCount = header.sinFrameCount;
    const uint64_t whiteCount = header.whiteFrameCount;
    if (sinCount + whiteCount != frames.size()) return false;
    const int64_t cams = header.camCount, dimA = header.sinDimA, dimB = header.sinDimB, dimC = header.sinDimC;
    if (cams < 0 || cams > kMaxCameras || dimA < 0 || dimB < 0) return false;
    if (sinCount != 0 && dimC <= 0) return false;

    uint8_t camTable[kMaxCameras] = {0, 1, 2, 3, 4, 5, 6, 7};
    if (header.version >= 2) std::memcpy(camTable, header.camTable, kMaxCameras);

    // Directory d of the list: the Sin groups camera by camera (P for the
    // first sinDimB group of each sinDimA pass), then one P per camera for
    // the white frames. Computed, not built: counts come from the file.
    const int64_t sinDirs = cams * dimA * dimB;
    auto directory = [&](int64_t d, std::string& out) {
        int64_t camera;
        bool p;
        if (d < sinDirs) {
            camera = d / (dimA * dimB);
            p = d % dimB == 0;
        } else {
            camera = d - sinDirs;
            p = true;
        }
        if (camera >= cams) return false;
        out = param.outputDir + "Cam" + std::to_string(camTable[camera]) + (p ? "P" : "Q") + "\\" +
              std::to_string(param.viewIdx) + "\\";
        return true;
    };
    auto write = [](IImgP* img, const std::string& dir, const std::string& file) {
        if (!FileToolP::IsDirectoryExists(dir) && !FileToolP::CreateDirectoryRecursively(dir)) return false;
        img->SaveBmp(file.c_str());  // format 3, pixels, then the information block
        return true;
    };

    int64_t d = 0;
    int64_t k = 0;
    std::string dir;
    for (uint64_t i = 0; i < sinCount; ++i) {
        if (!directory(d, dir)) return false;
        const int number = _IsPDir(dir) ? _FrameNumber(static_cast<int>(k)) : static_cast<int>(k);
        if ((param.mode == 1 || param.mode == 3) &&
            !write(frames[i], dir, dir + "img" + std::to_string(number) + ".bmp"))
            return false;
        k = (k + 1) % dimC;
        if (k == 0) ++d;
    }
    for (uint64_t i = sinCount; i < frames.size(); ++i) {
        if (!directory(d, dir)) return false;
        if ((param.mode == 1 || param.mode == 2) && !write(frames[i], dir, dir + "imgW.bmp")) return false;
        ++d;
    }
    return true;
}

unsigned long ArmImageExtractor::_ThreadFunc(void* threadParam) {
    auto* p = static_cast<ExtractArmImageThreadParam*>(threadParam);
    const ExtractArmImageParam param{p->viewIdx, p->inputDir, p->outputDir, p->mode};
    return p->owner->_Extract(param) ? 0 : 1;
}

void ArmImageExtractor::_AsyncExtract(void*& threadHandle, ExtractArmImageThreadParam& threadParam) {
    threadHandle = platform::StartThread(&ArmImageExtractor::_ThreadFunc, &threadParam);
    platform::SetThreadPriority(threadHandle, platform::eThreadPriorityTimeCritical);
}

}  // namespace GrabSystem
