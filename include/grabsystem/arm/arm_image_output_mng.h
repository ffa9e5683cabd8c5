// CArmImageOutputMng: lends each view an output block from a small pool of
// reusable blocks, has it compress into the block and write its file, then
// destroys the view, which returns the block. It also owns an output queue
// served by one worker thread (StartProcess / StopProcess).
//
// Timing lines "ArmCost--<stage>(<view>)" go to PelvaneSpace::Logger with
// kind 2.
//
// Threads: one lock guards the queue and the abort and busy flags; each
// block's lock guards its using status; the two are never held together.
// The pool of blocks and the max count are not locked: AddOneViewImages must
// not run on two threads at once. The worker only saves and destroys queued
// views. The destructor does not stop the worker: call StopProcess first.
//
// Ownership: the manager owns its blocks and every queued view. A view
// handed to AddOneViewImages is destroyed when the result is eAddRltOk and
// stays the caller's otherwise.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <vector>

#include "grabsystem/arm/arm_counters.h"
#include "grabsystem/arm/arm_image_output_memory.h"
#include "grabsystem/arm/one_view_arm_image_data.h"
#include "grabsystem/grabsystem_export.h"
#include "grabsystem/platform/os/mutex.h"
#include "grabsystem/pool/counter.h"

namespace GrabSystem {

enum eAddOneViewImageRlt : int32_t {
    eAddRltOk = 0,              // compressed, written and destroyed
    eAddRltNoMemory = 1,        // the block could not take the view (or no view); still the caller's
    eAddRltCompressFailed = 3,  // later frames outgrew the first, so the view did not fit its block;
                                // still the caller's, holding the block, and SaveToFile writes nothing
};

class GRABSYSTEM_EXPORT CArmImageOutputMng {
public:
    CArmImageOutputMng();
    // Stops the compression threads; not the worker (see StopProcess).
    virtual ~CArmImageOutputMng();
    CArmImageOutputMng(const CArmImageOutputMng&) = delete;
    CArmImageOutputMng& operator=(const CArmImageOutputMng&) = delete;

    // Most blocks the pool may hold (default 3). The count of blocks is
    // compared as an unsigned number with this value widened with its sign:
    // 0 lets no block be made (AddOneViewImages then waits for ever), a
    // negative value removes the cap.
    void SetMaxMemoryPoolDataCount(int count) { m_maxCount = count; }
    int GetMaxMemoryPoolDataCount() const { return m_maxCount; }

    // Threads that compress the frames of each view in AddOneViewImages: the
    // calling thread and n - 1 others, started here and kept for every view
    // until the next call or the destructor. 1 (the default, and what any
    // smaller value means) does all the work on the calling thread. Files,
    // results, "ArmCost--" lines and their order are the same for every n:
    // only the compression is shared out, and the lines, the file write and
    // the view's destruction stay on the calling thread. Not while
    // AddOneViewImages runs.
    void SetCompressThreads(int n);
    int GetCompressThreads() const;

    // Starts the worker that saves queued views. Call once.
    void StartProcess();
    // Asks the worker to end and waits for it; harmless without one. Views
    // still queued stay queued.
    void StopProcess();

    // On the calling thread: borrows a free block of at least the view's
    // required size (making one while the pool is below its cap, else
    // waiting in 100 ms steps, without time limit), compresses, writes the
    // file and destroys the view. The second argument is not used. A view
    // whose frames all have the size of the first frame of their kind always
    // gives eAddRltOk, whatever its content.
    eAddOneViewImageRlt AddOneViewImages(COneViewArmImageData* data, int unused = 0);

    // Returns once the queue is empty and the worker is not writing,
    // looking every 100 ms; without a worker and with views queued it never
    // returns. The worker takes a view off the queue and then marks itself
    // busy in two separate locked steps, so in the moment between them the
    // queue is empty, the worker not yet busy, and this call can return
    // while the last view is still to be written. A caller that must know
    // every file is on disk calls StopProcess() afterwards (the worker
    // finishes the view it holds before it ends) or watches
    // GetCounters().writtenByWorker.
    void WaitAllTaskDone();

    // Queues a view for the worker, which takes ownership. Thread-safe. A
    // null is queued too: the worker takes it off with nothing to write.
    void _AddDataToOutputFileQueue(COneViewArmImageData* data);

    // For tests and progress: blocks in the pool, views queued.
    size_t GetMemoryPoolSize() const { return m_pool.size(); }
    size_t GetQueuedCount();

    // What the manager has done since it was made or last reset (see
    // OutputCounters); read at any time from any thread, without a lock.
    OutputCounters GetCounters() const;
    void ResetCounters();

private:
    static unsigned long _ThreadFunc(void* self);
    // Takes the front entry off the queue; `taken` says whether there was
    // one (an entry may be null).
    std::unique_ptr<COneViewArmImageData> _Pop(bool& taken);
    CArmImageOutputMemory* _GetAvaliableMemory(uint64_t required);
    bool _GetAbortStatus();
    void _SetAbortStatus(bool abort);
    void _SetBusyStatus(bool busy);
    bool _GetBusyStatus();
    void _DeleteAllViewArmImageDatas();
    void _DeleteMemoryPool();
    static void _Log(const char* stage, int viewIdx);

    int m_maxCount = 3;
    std::unique_ptr<platform::ThreadPool> m_compressPool;  // null: one thread
    std::vector<std::vector<unsigned char>> m_compressScratch;  // one buffer per compressing thread
    std::list<std::unique_ptr<COneViewArmImageData>> m_queue GRABSYS_GUARDED_BY(m_lock);
    std::vector<std::unique_ptr<CArmImageOutputMemory>> m_pool;
    platform::CriticalSection m_lock;
    void* m_worker = nullptr;  // the worker thread's handle
    bool m_abort GRABSYS_GUARDED_BY(m_lock) = false;
    bool m_busy GRABSYS_GUARDED_BY(m_lock) = false;
    Count m_written, m_refusedNoMemory, m_refusedCompressFailed, m_saveFailed, m_waits, m_waitMsTotal,
        m_waitMsLongest, m_writtenByWorker;
};

}  // namespace GrabSystem
