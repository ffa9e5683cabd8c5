#include "grabsystem/arm/arm_image_extractor.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "grabsystem/arm/arm_tree.h"
#include "grabsystem/format/arm_view.h"
#include "grabsystem/image/img_kinds.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/os.h"
#include "grabsystem/platform/thread_pool.h"
#include "grabsystem/platform/tracking_env.h"
#include "grabsystem/platform/toolkit/file_tool.h"
#include "grabsystem/platform/toolkit/lz4_tool.h"
#include "grabsystem/platform/toolkit/win_helper.h"

namespace GrabSystem {

using DrasselSpace::CWinHelper;
using DrasselSpace::FileToolP;

namespace {

// Windows of a view file, read on demand into one reused buffer.
class ViewFileReader {
public:
    // False when the file cannot be opened.
    bool Open(platform::Env* env, const std::string& path) {
        if (!env->NewRandomAccessFile(path, &m_file).ok()) return false;
        m_size = m_file->Size();
        return true;
    }
    // The bytes [offset, offset + length) that lie inside the file (fewer,
    // or none, past its end); valid until the next Read. False when the
    // file will not give bytes it holds.
    bool Read(uint64_t offset, uint64_t length, format::Bytes& bytes) {
        const uint64_t have = offset < m_size ? std::min(length, m_size - offset) : 0;
        if (have > SIZE_MAX) return false;
        if (m_buffer.size() < have) m_buffer.resize(static_cast<size_t>(have));
        size_t got = 0;
        if (have != 0 && (!m_file->Read(offset, static_cast<size_t>(have), m_buffer.data(), &got).ok() || got != have))
            return false;
        bytes = format::Bytes(m_buffer.data(), static_cast<size_t>(have));
        return true;
    }

private:
    std::unique_ptr<platform::RandomAccessFile> m_file;
    uint64_t m_size = 0;
    std::vector<unsigned char> m_buffer;
};

constexpr uint32_t kHeaderBytes = COneViewArmImageData::kHeaderBytes;
constexpr uint32_t kRecordBytes = COneViewArmImageData::kRecordHeaderBytes;

}  // namespace

ArmImageExtractor::ArmImageExtractor() = default;

ArmImageExtractor::~ArmImageExtractor() = default;

bool ArmImageExtractor::ParseArmRawFile(std::string directory, std::vector<int>& views) {
    views.clear();
    std::vector<std::string> paths;
    if (!CWinHelper::GetDirectoryAllFilePath(directory, paths, m_env)) return false;
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
    for (int i = 0; i < 3; ++i) {
        m_extracted[i].Set(0);
        m_failed[i].Set(0);
        m_filesFailed[i].Set(0);
    }
    for (unsigned i = 0; i < sourceCount; ++i) {
        failedViews[i].clear();
        if (i >= 3 || parm.views[i].empty()) continue;
        // The system's rule for both folders: unless a folder's last "\\" is
        // its last character, "\\" is appended ("/" does not count).
        const std::string input = CWinHelper::WithTrailingSeparator(parm.inputDirs[i], '\\', "\\");
        if (!FileToolP::IsDirectoryExists(input, m_env)) continue;
        const std::string output = CWinHelper::WithTrailingSeparator(parm.outputDir, '\\', "\\");
        if (!FileToolP::IsDirectoryExists(output, m_env) && !FileToolP::CreateDirectoryRecursively(output, m_env))
            continue;
        const std::vector<int>& views = parm.views[i];
        std::vector<char> extracted(views.size(), 0);
        auto extract = [&](size_t k) {
            // The view's own account of its files, for the counter only: the
            // system's result stays _Extract's.
            platform::TrackingEnv files(platform::Env::Or(m_env), platform::TrackingEnv::Options{false, false});
            extracted[k] = _Extract({views[k], input, output, parm.mode}, &files);
            (extracted[k] ? m_extracted[i] : m_failed[i]).Add();
            if (extracted[k] && files.FilesFailed() != 0) m_filesFailed[i].Add();
        };
        if (m_extractPool)
            m_extractPool->Run(views.size(), [&](size_t k, int) { extract(k); });
        else
            for (size_t k = 0; k < views.size(); ++k) extract(k);
        for (size_t k = 0; k < views.size(); ++k)
            if (!extracted[k]) failedViews[i].push_back(views[k]);
    }
    return true;
}

void ArmImageExtractor::SetExtractThreads(int n) {
    m_extractPool.reset();
    if (n > 1) m_extractPool = std::make_shared<platform::ThreadPool>(n);
}

int ArmImageExtractor::GetExtractThreads() const { return m_extractPool ? m_extractPool->Threads() : 1; }

ExtractCounters ArmImageExtractor::GetCounters() const {
    ExtractCounters c;
    for (int i = 0; i < 3; ++i) {
        c.extracted[i] = m_extracted[i].Get();
        c.failed[i] = m_failed[i].Get();
        c.filesFailed[i] = m_filesFailed[i].Get();
    }
    return c;
}

bool ArmImageExtractor::_Extract(ExtractArmImageParam param, platform::Env* output) {
    const std::string path = param.inputDir + std::to_string(param.viewIdx) + ".armraw";
    if (!FileToolP::FileExists(path, m_env)) return false;
    // The file is read a record at a time into one buffer rather than whole:
    // a view file is hundreds of MiB, and fresh memory for it would cost a
    // page fault per page on every view.
    ViewFileReader file;
    if (!file.Open(platform::Env::Or(m_env), path)) return false;
    if (output == nullptr) output = m_env;

    // A file shorter than the header reads the missing bytes as zeros.
    format::Bytes head;
    if (!file.Read(0, kHeaderBytes, head)) return false;
    const OneViewArmImageDataHeader header = format::DecodeArmHeader(head);
    const uint32_t frameCount = header.sinFrameCount + header.whiteFrameCount;  // 32-bit, wraps

    std::vector<std::unique_ptr<IImgP>> owned;
    std::vector<IImgP*> frames;
    uint64_t at = kHeaderBytes;
    // The decoder is handed the frame's memory size as an int: a frame of
    // 2^31 bytes or more gets a capacity it refuses.
    const uint32_t frameBytes = header.width * header.height;  // an 8-bit grey frame's size, 32-bit, wraps
    const bool decodable = DrasselSpace::CLZ4DecompressorP::CapacityOf(frameBytes) > 0;
    for (uint32_t f = 0; f < frameCount; ++f) {
        auto* img = new CImg8P;
        owned.emplace_back(img);
        img->GetInfo().size.SetBitPerChannel(8);
        img->SetEnv(output);
        frames.push_back(img);
        // Such a frame fails before it is sized, unless it is the last,
        // which is written whatever it holds.
        if (!decodable && f + 1 != frameCount) {
            frames.pop_back();
            break;
        }
        img->SetSize(header.width, header.height, 1, false);
        // A record or data missing from the file, or a length beyond what
        // the decoder takes, decodes to nothing, as a damaged block does.
        int decoded = 0;
        format::ArmRecordView record;
        format::Bytes window;
        if (!file.Read(at, kRecordBytes, window)) return false;
        // The record's header, then the record with as much of its data as
        // the file holds, as a window that starts at the record.
        if (format::DecodeArmRecord(window, 0, record)) {
            if (!file.Read(at, kRecordBytes + uint64_t{record.length}, window)) return false;
            format::DecodeArmRecord(window, 0, record);
            const int capacity = DrasselSpace::CLZ4DecompressorP::CapacityOf(img->GetMemSize());
            // Only the bytes that are in the file go to the decoder.
            if (record.length <= INT32_MAX && capacity > 0)
                decoded = DrasselSpace::CLZ4DecompressorP::DecompressRaw(
                    record.data.data, static_cast<int>(record.data.size), img->GetImg(), capacity);
            at += kRecordBytes + uint64_t{record.length};
        }
        // A frame that fails leaves the vector one short unless it was the
        // last: that one is written with whatever its buffer holds.
        if (decoded == 0 && f + 1 != frameCount) frames.pop_back();
        if (decoded == 0) break;
    }
    if (frames.size() != frameCount) return false;
    return _Save(frames, param, header, output);
}

bool ArmImageExtractor::_Save(std::vector<IImgP*>& frames, ExtractArmImageParam param,
                              OneViewArmImageDataHeader header, platform::Env* output) {
    if (static_cast<uint32_t>(header.sinFrameCount + header.whiteFrameCount) != frames.size()) return false;
    const ArmTree tree = LayOutArmTree(header, param.viewIdx, param.outputDir);
    const bool sin = param.mode == 1 || param.mode == 3, white = param.mode == 1 || param.mode == 2;
    for (const ArmTreeFrame& f : tree.frames) {
        if (!(f.white ? white : sin)) continue;
        if (!FileToolP::IsDirectoryExists(f.folder, output) && !FileToolP::CreateDirectoryRecursively(f.folder, output))
            return false;
        frames[f.frame]->SaveBmp(f.file.c_str());  // format 3, pixels, then the information block
    }
    return tree.complete;
}

unsigned long ArmImageExtractor::_ThreadFunc(void* threadParam) {
    auto* p = static_cast<ExtractArmImageThreadParam*>(threadParam);
    const ExtractArmImageParam param{p->viewIdx, p->inputDir, p->outputDir, p->mode};
    return p->owner->_Extract(param) ? 0 : 1;
}

void ArmImageExtractor::_AsyncExtract(void*& threadHandle, ExtractArmImageThreadParam& threadParam) {
    platform::Env* env = platform::Env::Or(m_env);
    threadHandle = env->StartThread(&ArmImageExtractor::_ThreadFunc, &threadParam);
    env->SetThreadPriority(threadHandle, platform::eThreadPriorityTimeCritical);
}

}  // namespace GrabSystem
