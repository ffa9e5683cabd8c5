#include "grabsystem/arm/arm_image_output_mng.h"

#include <string>

#include "grabsystem/platform/env.h"
#include "grabsystem/platform/logger/logger.h"
#include "grabsystem/platform/thread_pool.h"

namespace GrabSystem {

using platform::CriticalSectionLock;

namespace {
constexpr uint32_t kMemoryPollMs = 100;
constexpr uint32_t kIdlePollMs = 1;
}  // namespace

CArmImageOutputMng::CArmImageOutputMng() = default;

CArmImageOutputMng::~CArmImageOutputMng() {
    _DeleteAllViewArmImageDatas();
    _DeleteMemoryPool();
    m_lock.Enter();
    m_lock.Leave();
}

void CArmImageOutputMng::_Log(const char* stage, int viewIdx) {
    PelvaneSpace::Logger::GetInstance()->Info(PelvaneSpace::Logger::kKindInfo,
                                              std::string(stage) + "(" + std::to_string(viewIdx) + ")");
}

CArmImageOutputMemory* CArmImageOutputMng::_GetAvaliableMemory(uint64_t required) {
    for (const auto& block : m_pool)
        if (!block->GetUsingStatus() && block->GetAllocatedSize() >= required) return block.get();
    if (m_pool.size() < static_cast<size_t>(static_cast<int64_t>(m_maxCount))) {
        std::unique_ptr<CArmImageOutputMemory> block(new CArmImageOutputMemory);
        block->AllocateMemory(required);
        m_pool.push_back(std::move(block));
        return m_pool.back().get();
    }
    return nullptr;
}

eAddOneViewImageRlt CArmImageOutputMng::AddOneViewImages(COneViewArmImageData* data, int) {
    if (data == nullptr) {
        m_refusedNoMemory.Add();
        return eAddRltNoMemory;
    }
    const int view = data->GetViewIdx();
    _Log("ArmCost--CArmImageOutputMng::AddOneViewImages - 1", view);
    const uint64_t required = data->GetMemoryRequired();
    _Log("ArmCost--_GetAvaliableMemory - 1", view);
    CArmImageOutputMemory* block = _GetAvaliableMemory(required);
    if (block == nullptr) {
        const uint32_t since = platform::Env::Default()->NowMs();
        do {
            platform::Env::Default()->SleepMs(kMemoryPollMs);
            block = _GetAvaliableMemory(required);
        } while (block == nullptr);
        const uint32_t waited = platform::Env::Default()->NowMs() - since;  // the tick wraps; the difference does not care
        m_waits.Add();
        m_waitMsTotal.Add(waited);
        m_waitMsLongest.Max(waited);
    }
    _Log("ArmCost--_GetAvaliableMemory - 2", view);
    if (!data->SetAvaliableMemory(block)) {
        m_refusedNoMemory.Add();
        return eAddRltNoMemory;
    }
    _Log("ArmCost--CompressMemoryData - 1", view);
    const bool compressed =
        m_compressPool ? data->_CompressMemoryData(*m_compressPool, m_compressScratch) : data->CompressMemoryData();
    if (!compressed) {
        m_refusedCompressFailed.Add();
        return eAddRltCompressFailed;
    }
    _Log("ArmCost--CompressMemoryData - 2", view);
    // The view's file may fail after SaveToFile has its answer (a write cut
    // short): the counter goes by what the file met.
    if (!data->SaveToFile() || !data->GetSaveStatus().ok()) m_saveFailed.Add();
    delete data;
    m_written.Add();
    _Log("ArmCost--CArmImageOutputMng::AddOneViewImages - 2", view);
    return eAddRltOk;
}

void CArmImageOutputMng::SetCompressThreads(int n) {
    m_compressPool.reset();
    m_compressScratch.clear();
    if (n > 1) m_compressPool = std::make_unique<platform::ThreadPool>(n);
}

int CArmImageOutputMng::GetCompressThreads() const { return m_compressPool ? m_compressPool->Threads() : 1; }

void CArmImageOutputMng::_AddDataToOutputFileQueue(COneViewArmImageData* data) {
    CriticalSectionLock lock(m_lock);
    m_queue.emplace_back(data);
}

size_t CArmImageOutputMng::GetQueuedCount() {
    CriticalSectionLock lock(m_lock);
    return m_queue.size();
}

std::unique_ptr<COneViewArmImageData> CArmImageOutputMng::_Pop(bool& taken) {
    CriticalSectionLock lock(m_lock);
    taken = !m_queue.empty();
    if (!taken) return nullptr;
    std::unique_ptr<COneViewArmImageData> data = std::move(m_queue.front());
    m_queue.pop_front();
    return data;
}

bool CArmImageOutputMng::_GetAbortStatus() {
    CriticalSectionLock lock(m_lock);
    return m_abort;
}

void CArmImageOutputMng::_SetAbortStatus(bool abort) {
    CriticalSectionLock lock(m_lock);
    m_abort = abort;
}

void CArmImageOutputMng::_SetBusyStatus(bool busy) {
    CriticalSectionLock lock(m_lock);
    m_busy = busy;
}

bool CArmImageOutputMng::_GetBusyStatus() {
    CriticalSectionLock lock(m_lock);
    return m_busy;
}

unsigned long CArmImageOutputMng::_ThreadFunc(void* self) {
    auto* mng = static_cast<CArmImageOutputMng*>(self);
    if (mng->_GetAbortStatus()) return 0;
    do {
        bool taken = false;
        // A queued null is an entry like any other, with nothing to write.
        std::unique_ptr<COneViewArmImageData> data = mng->_Pop(taken);
        if (taken) {
            mng->_SetBusyStatus(true);
            if (data && (!data->SaveToFile() || !data->GetSaveStatus().ok())) mng->m_saveFailed.Add();
            mng->_SetBusyStatus(false);
            if (data) mng->m_writtenByWorker.Add();
        } else {
            platform::Env::Default()->SleepMs(kIdlePollMs);
        }
    } while (!mng->_GetAbortStatus());
    return 0;
}

void CArmImageOutputMng::StartProcess() {
    m_worker = platform::Env::Default()->StartThread(&CArmImageOutputMng::_ThreadFunc, this);
    platform::Env::Default()->SetThreadPriority(m_worker, platform::eThreadPriorityNormal);
}

void CArmImageOutputMng::StopProcess() {
    if (m_worker == nullptr) return;
    _SetAbortStatus(true);
    platform::Env::Default()->WaitThread(m_worker, nullptr);
    platform::Env::Default()->CloseThread(m_worker);
    m_worker = nullptr;
    _SetAbortStatus(false);
}

void CArmImageOutputMng::WaitAllTaskDone() {
    for (;;) {
        {
            CriticalSectionLock lock(m_lock);
            if (m_queue.empty() && !m_busy) return;
        }
        platform::Env::Default()->SleepMs(kMemoryPollMs);
    }
}

OutputCounters CArmImageOutputMng::GetCounters() const {
    OutputCounters c;
    c.written = m_written.Get();
    c.refusedNoMemory = m_refusedNoMemory.Get();
    c.refusedCompressFailed = m_refusedCompressFailed.Get();
    c.saveFailed = m_saveFailed.Get();
    c.waits = m_waits.Get();
    c.waitMsTotal = m_waitMsTotal.Get();
    c.waitMsLongest = m_waitMsLongest.Get();
    c.writtenByWorker = m_writtenByWorker.Get();
    return c;
}

void CArmImageOutputMng::ResetCounters() {
    for (Count* count : {&m_written, &m_refusedNoMemory, &m_refusedCompressFailed, &m_saveFailed, &m_waits,
                         &m_waitMsTotal, &m_waitMsLongest, &m_writtenByWorker})
        count->Set(0);
}

void CArmImageOutputMng::_DeleteAllViewArmImageDatas() {
    CriticalSectionLock lock(m_lock);
    m_queue.clear();
}

void CArmImageOutputMng::_DeleteMemoryPool() { m_pool.clear(); }

}  // namespace GrabSystem
