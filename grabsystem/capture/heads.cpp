#include "grabsystem/capture/heads.h"

#include "grabsystem/format/binary_io.h"

namespace GrabSystem {
namespace capture {

namespace {

// A file's head, read in steps, never more than the file holds.
class Head {
public:
    explicit Head(platform::Env* env) : m_reader(env) {}
    Status Open(const std::string& path) {
        if (m_reader.Open(path.c_str()) == 0) return m_reader.status();
        m_fileBytes = m_reader.Remaining();
        return Status::OK();
    }
    // Up to `bytes` more bytes (fewer at the end of the file), and all read so far.
    format::Bytes More(size_t bytes) {
        const size_t start = m_bytes.size();
        m_bytes.resize(start + bytes);
        m_bytes.resize(start + m_reader.ReadByteArray(m_bytes.data() + start, bytes));
        return All();
    }
    format::Bytes All() const { return format::Bytes(m_bytes.data(), m_bytes.size()); }
    uint64_t FileBytes() const { return m_fileBytes; }
    const Status& status() const { return m_reader.status(); }

private:
    BinaryReader m_reader;
    uint64_t m_fileBytes = 0;
    std::vector<unsigned char> m_bytes;
};

}  // namespace

bool CamerasOf(const OneViewArmImageDataHeader& h, std::vector<int>& cameras, std::string& error) {
    const int tableSize = h.version < 2 ? format::kArmIdentityCameras : static_cast<int>(format::kArmCameraTableBytes);
    if (h.camCount < 0 || h.camCount > tableSize) {
        error = "arm view: camera count " + std::to_string(h.camCount) + " outside 0.." + std::to_string(tableSize);
        return false;
    }
    cameras.clear();
    for (int c = 0; c < h.camCount; ++c) cameras.push_back(h.version < 2 ? c : h.camTable[c]);
    return true;
}

Status ReadArmHead(const std::string& path, ArmHead& result, platform::Env* env) {
    Head head(env);
    const Status opened = head.Open(path);
    if (!opened.ok()) return opened;
    result.fileBytes = head.FileBytes();
    format::ArmViewSummary summary;
    // Only the header is there: the records are walked to none.
    const format::Status status = format::SummarizeArmView(head.More(format::kArmHeaderBytes), summary);
    if (!head.status().ok()) return head.status();
    if (status != format::Status::kOk)
        return Status::Corruption(path, std::string("arm view: ") + format::Describe(status) + " header");
    std::string error;
    if (!CamerasOf(summary.header, result.cameras, error)) return Status::Corruption(path, error);
    result.header = summary.header;
    return Status::OK();
}

Status CheckPackageHead(const std::string& path, platform::Env* env) {
    Head head(env);
    const Status opened = head.Open(path);
    if (!opened.ok()) return opened;
    const bool holds = format::HoldsPackageHead(head.More(format::kPackageHeadBytes));
    if (!head.status().ok()) return head.status();
    return holds ? Status::OK() : Status::Corruption(path, "too short to be a debug package");
}

Status ReadPackageHead(const std::string& path, PackageHead& result, platform::Env* env) {
    Head head(env);
    const Status opened = head.Open(path);
    if (!opened.ok()) return opened;
    PackageHead h;
    h.fileBytes = head.FileBytes();
    const bool holds = format::HoldsPackageHead(head.More(format::kPackageHeadBytes));
    if (!head.status().ok()) return head.status();
    if (!holds) return Status::Corruption(path, "too short to be a debug package");
    h.general = !format::IsImagePackageVersion(format::DecodeImagePackageHead(head.All()).version);
    if (!h.general) {
        const format::ImagePackageHead image = format::DecodeImagePackageHead(head.All());
        if (image.count == 0) return Status::Corruption(path, "image package: no records");
        const uint64_t end = image.bytes + uint64_t{image.count} * format::kImagePackageRecordBytes;
        if (end > h.fileBytes)
            return Status::Corruption(path, "image package: the file ends inside its " + std::to_string(image.count) +
                                                " records");
        const format::Bytes bytes = head.More(static_cast<size_t>(end) - head.All().size);
        if (!head.status().ok()) return head.status();
        for (uint32_t i = 0; i < image.count; ++i) {
            const CDebugImgPackageInfoP r = format::DecodeImagePackageRecord(
                bytes.Sub(image.bytes + size_t{i} * format::kImagePackageRecordBytes, format::kImagePackageRecordBytes));
            // The head's jump index is every run's, as ReadPackage gives it.
            h.records.push_back(CDebugPackageInfoP{image.jumpIdx, r.Width, r.Height, r.FrameCount, r.CamIdx, r.GroupIdx});
        }
        h.version = image.version;
        h.jumpIdx = image.jumpIdx;
    } else {
        const format::GeneralPackageHead general = format::DecodeGeneralPackageHead(head.All());
        const uint64_t end = format::GeneralPackageDataOffset(general.count);
        if (end > h.fileBytes)
            return Status::Corruption(path, "general package: the file ends inside its " +
                                                std::to_string(general.count) + " records");
        format::GeneralPackageSummary summary;
        const format::Status status =
            format::SummarizeGeneralPackage(head.More(static_cast<size_t>(end) - head.All().size), summary);
        if (!head.status().ok()) return head.status();
        if (status != format::Status::kOk)
            return Status::Corruption(path, std::string("general package: ") + format::Describe(status));
        h.records = summary.records;
        h.version = general.version;
        h.projectFile = general.flag == 1;
    }
    result = std::move(h);
    return Status::OK();
}

}  // namespace capture
}  // namespace GrabSystem
