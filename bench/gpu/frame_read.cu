// Reads a frame on the GPU and adds up its bytes, so that no read can be
// optimised away and the sum proves what the GPU saw. 16-byte loads, as a
// kernel that processes a frame would use them; over a device-mapped chunk
// every load crosses the bus, which is what the benchmark measures.
__device__ unsigned long long WordBytes(unsigned int w) {
    const unsigned int pairs = (w & 0x00FF00FFu) + ((w >> 8) & 0x00FF00FFu);
    return (pairs & 0xFFFFu) + (pairs >> 16);
}

extern "C" __global__ void frame_read(const unsigned char* bytes, unsigned long long count, unsigned long long* sum) {
    const uint4* words = reinterpret_cast<const uint4*>(bytes);
    const unsigned long long nWords = count / 16;
    const unsigned long long stride = static_cast<unsigned long long>(gridDim.x) * blockDim.x;
    const unsigned long long first = static_cast<unsigned long long>(blockIdx.x) * blockDim.x + threadIdx.x;
    unsigned long long local = 0;
    for (unsigned long long i = first; i < nWords; i += stride) {
        const uint4 v = words[i];
        local += WordBytes(v.x) + WordBytes(v.y) + WordBytes(v.z) + WordBytes(v.w);
    }
    for (unsigned long long i = nWords * 16 + first; i < count; i += stride) local += bytes[i];
    for (int offset = 16; offset > 0; offset /= 2) local += __shfl_down_sync(0xFFFFFFFFu, local, offset);
    if ((threadIdx.x & 31) == 0) atomicAdd(sum, local);
}
