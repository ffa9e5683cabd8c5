// A camera thread pushes a padded frame into an image pool; a consumer
// fetches it by serial, saves it as a BMP and releases it; the codec layer
// reads the file back.
#include <grabsystem/grabsystem.h>

#include <cstdio>
#include <memory>
#include <vector>

int main() {
    using namespace GrabSystem;
    const unsigned width = 640, height = 480, rowGap = 32;
    std::vector<unsigned char> region(4 * width * height);  // the pool's memory, owned by the caller
    std::vector<unsigned char> camera((width + rowGap) * height, 42);

    CImgPoolCtrlP pool(0, nullptr, ePoolRing, 8);
    CMemBlockP block(region.data(), region.size());
    pool.AssignMemoryBlock(block);
    pool.SetDefaultMemSize(width * height);
    pool.SetImgDefaultConfig(eCam0, VormexDataStructure::eMemModeFixed,
                             VormexDataStructure::ImgSize(width, height, 1, 8), VormexDataStructure::ImgRes());
    pool.Add(4);

    if (!pool.PushImg(camera.data(), width, height, rowGap, /*frameAttr=*/7)) return 1;  // camera thread
    IImgP* img = pool.GetImg(0);                                                          // consumer thread
    img->SetToUsing();
    const bool saved = img->SaveBmp("frame0.bmp");  // pixels, then the image's information block
    std::printf("frame #0: %u x %u, attribute %u, first pixel %d\n", img->GetWidth(), img->GetHeight(),
                img->GetInfo().frameAttr, img->GetImg()[0]);
    img->ReleaseUsingStatus();  // back to the pool

    std::unique_ptr<unsigned char[]> file;
    uint64_t size = 0;
    format::BmpLayout layout;
    const bool decoded = platform::Env::Default()->ReadFile("frame0.bmp", file, size).ok() &&
                         format::DecodeBmpLayout(format::Bytes(file.get(), size), layout) == format::Status::kOk &&
                         layout.width == width && layout.height == height;

    pool.DeleteAll();
    pool.DischargeMemoryBlock();
    return saved && decoded && pool.GetUsingCount() == 0 ? 0 : 1;
}
