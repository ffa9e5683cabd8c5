// Sums bytes that the GPU reads through a device pointer: of a device buffer
// that is page-locked, device-mapped host memory, read with no staging copy.
extern "C" __global__ void byte_sum(const unsigned char* bytes, unsigned long long count, unsigned long long* sum) {
    const unsigned long long stride = static_cast<unsigned long long>(gridDim.x) * blockDim.x;
    unsigned long long local = 0;
    for (unsigned long long i = static_cast<unsigned long long>(blockIdx.x) * blockDim.x + threadIdx.x; i < count;
         i += stride)
        local += bytes[i];
    atomicAdd(sum, local);
}
