// ArmImageExtractor: turns the per-view ".armraw" files of a capture back
// into a tree of BMP files, each BMP followed by its frame's information
// block:
//   <out>Cam<c><P|Q>\<view>\img<k>.bmp   Sin frames; P for the first
//                                         sinDimB group of each sinDimA pass
//   <out>Cam<c>P\<view>\imgW.bmp          the white-pattern frame of camera c
// Paths are joined with "\" (the platform maps them on POSIX). Which frame
// goes to which file is arm_tree.h's LayOutArmTree: in a directory whose
// path contains Cam0P..Cam7P, frame k is written as img<(k + 4) mod 12>,
// so P directories start their numbering at 4.
//
// Decoding trusts the header's counts and the records' lengths as far as
// the file's bytes go: bytes a short file lacks (header, record, data) read
// as nothing, so such a frame fails as a damaged block does. Every frame is
// sized to the header's width x height (32-bit, up to 4 GiB, not checked
// against the file). The decoder takes that size as a 32-bit int, so a
// frame of 2^31 bytes or more fails, as does one of 0 bytes (such a frame
// is not even sized unless it is the last). A frame that fails fails the
// view, except the last one, which is written with whatever its buffer
// holds (what the decoder wrote before it stopped, and the freshly
// allocated rest). Writing fails
// the view when the camera count exceeds 8, a frame runs past the directory
// list (more white frames than cameras, negative counts), or sinDimC is 0
// with Sin frames present. Counts below 1 make their directory loops run
// zero times; a negative sinDimC numbers the frames as its magnitude would.
// Nothing reads or writes outside a buffer.
//
// Writing a frame, the system's step ignores whether its BMP went into
// place; the extractor still counts a view whose files did not all come out
// whole (ExtractCounters::filesFailed), through an Env of its own per view
// over the one it was given.
//
// Threads: extracting a view changes nothing of the extractor, so several
// views may be extracted on different threads at once (one extractor per
// thread is simplest; _AsyncExtract shares one).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "grabsystem/arm/arm_counters.h"
#include "grabsystem/arm/one_view_arm_image_data.h"
#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/env.h"
#include "grabsystem/platform/os/mutex.h"
#include "grabsystem/pool/counter.h"

namespace GrabSystem {

class ArmImageExtractor;
namespace platform {
class ThreadPool;
}

struct ExtractArmImageParam {
    int viewIdx;
    std::string inputDir;   // ends with "\"
    std::string outputDir;  // ends with "\"
    int mode;               // 1 all, 2 white only, 3 Sin only, else nothing
};

struct ExtractArmImageThreadParam {
    int viewIdx;
    std::string inputDir;
    std::string outputDir;
    int mode;
    ArmImageExtractor* owner;
};

struct OutputOneViewArmImageParm {
    std::vector<int> views[3];
    std::string inputDirs[3];
    std::string outputDir;
    int mode;
};

class GRABSYSTEM_EXPORT ArmImageExtractor {
public:
    ArmImageExtractor();
    ~ArmImageExtractor();
    ArmImageExtractor(const ArmImageExtractor&) = default;
    ArmImageExtractor& operator=(const ArmImageExtractor&) = default;

    // Extracts the listed views of up to three sources, one after another on
    // the calling thread. failedViews[i] receives the views of source i that
    // failed. A source without views, whose input folder is missing, or
    // whose output root cannot be created is skipped. False only when
    // failedViews is null.
    bool OutputOneViewArmImages(OutputOneViewArmImageParm parm, std::vector<int>* failedViews,
                                unsigned char sourceCount);

    // The view index of every ".armraw" file (case-sensitive) in the folder,
    // in listing order. False when the folder cannot be listed, holds no
    // such file, or one of them is not named by a number.
    bool ParseArmRawFile(std::string directory, std::vector<int>& views);

    // One view, synchronously (the body of the per-view thread).
    bool ExtractView(const ExtractArmImageParam& param) { return _Extract(param); }

    // Threads that extract the views of each source in
    // OutputOneViewArmImages: the calling thread and n - 1 others, started
    // here and kept until the next call or the destructor (copies of the
    // extractor share them, taking turns). 1, the default, extracts on the
    // calling thread alone. The trees written and the failed lists (in the
    // order of the views given) are the same for every n; each thread holds
    // one view's frames at a time. Not while OutputOneViewArmImages runs.
    void SetExtractThreads(int n);
    int GetExtractThreads() const;

    // The views extracted and failed per source by the last (or running)
    // OutputOneViewArmImages call; read from any thread without a lock.
    ExtractCounters GetCounters() const;

    // The Env the views are listed, read and written through, and that
    // starts _AsyncExtract's threads (not owned; it must outlive its use);
    // null, the default, uses Env::Default(). Copies share it.
    void SetEnv(platform::Env* env) { m_env = env; }

private:
    // No operation of the library starts _AsyncExtract; its tests do.
    friend class ArmImageExtractorPeer;

    // `output` is the Env the frames are written through (the extractor's
    // own when null).
    bool _Extract(ExtractArmImageParam param, platform::Env* output = nullptr);
    bool _Save(std::vector<IImgP*>& frames, ExtractArmImageParam param, OneViewArmImageDataHeader header,
               platform::Env* output);
    static unsigned long _ThreadFunc(void* threadParam);
    // Starts one extraction thread at time-critical priority; the caller
    // keeps `threadParam` alive, waits on the handle and closes it.
    void _AsyncExtract(void*& threadHandle, ExtractArmImageThreadParam& threadParam);

    std::shared_ptr<platform::ThreadPool> m_extractPool;  // null: one thread
    Count m_extracted[3], m_failed[3], m_filesFailed[3];
    platform::Env* m_env = nullptr;
};

}  // namespace GrabSystem
