// Pushes a padded camera frame into a pool and fetches it back by serial.
#include <grabsystem/grabsystem.h>

#include <cstdio>
#include <vector>

int main() {
    const size_t width = 640, height = 480, rowGap = 32;
    std::vector<unsigned char> region(4 * width * height);  // the pool's memory
    std::vector<unsigned char> camera((width + rowGap) * height, 42);

    GrabSystem::CChunkPoolCtrlP pool(0, nullptr, GrabSystem::ePoolRing);
    GrabSystem::CMemBlockP block(region.data(), region.size());
    pool.AssignMemoryBlock(block);
    pool.SetDefaultMemSize(width * height);
    pool.Add(4);

    if (!pool.PushData(camera.data(), width, height, rowGap)) return 1;
    auto* frame = static_cast<GrabSystem::IChunkDataP*>(pool.GetNodeWithSerial(0));
    const auto* pixels = static_cast<unsigned char*>(frame->GetData());
    std::printf("frame #%llu: first pixel %d\n", static_cast<unsigned long long>(frame->GetSerialNum()), pixels[0]);
    pool.Release(frame);

    pool.DeleteAll();
    pool.DischargeMemoryBlock();
    return pixels[0] == 42 ? 0 : 1;
}
