// K-means over a binary sample file: int32 count N, int32 dimension (not compared with dimNum),
// then N samples of dimNum doubles in native byte order; writes a label file of int32 N and N
// int32 labels. Nothing is checked: failed seeks and short reads just deliver nothing new.
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <vector>

#include "numeric/kmeans_index.h"
#include "numeric/kmeans_lloyd.h"
#include "rtmonitor/KMeans.h"

namespace {

constexpr std::streamoff kSampleFileHeaderBytes = 8;

std::streamsize sampleBytes(int dimNum) { return dimNum > 0 ? static_cast<std::streamsize>(dimNum) * 8 : 0; }

// Reads sample `index` straight into `mean`: a failed seek (negative offset, or the stream
// already failed) or a short read leaves the bytes not delivered as they were.
void readSample(std::istream& file, int32_t index, int dimNum, double* mean) {
    file.seekg(rtm::kmeansSampleOffset(index, dimNum), std::ios_base::beg);
    file.read(reinterpret_cast<char*>(mean), sampleBytes(dimNum));
}

}  // namespace

void KMeans::Init(std::ifstream& file) {
    int32_t n = 0;
    file.seekg(0, std::ios_base::beg);
    file.read(reinterpret_cast<char*>(&n), sizeof n);

    if (initMode == InitRandom) {
        std::srand(static_cast<unsigned>(std::time(nullptr)));
        if (clusterNum <= 0) return;
        const int32_t size = rtm::truncDiv32(n, clusterNum);
        for (int i = 0; i < clusterNum; ++i) {
            readSample(file, rtm::kmeansRandomIndex(i, size, std::rand()), dimNum, means[i]);
        }
    } else if (initMode == InitUniform) {
        for (int i = 0; i < clusterNum; ++i) {
            readSample(file, rtm::kmeansUniformIndex(i, n, clusterNum), dimNum, means[i]);
        }
    }
}

void KMeans::Cluster(const char* sampleFileName, const char* labelFileName) {
    // A missing name behaves as a file that cannot be opened.
    std::ifstream sampleFile;
    if (sampleFileName != nullptr) sampleFile.open(sampleFileName, std::ios_base::binary);

    int32_t n = 0;
    int32_t headerDim = 0;
    sampleFile.read(reinterpret_cast<char*>(&n), sizeof n);
    sampleFile.read(reinterpret_cast<char*>(&headerDim), sizeof headerDim);
    Init(sampleFile);

    // The sample buffer keeps whatever the last read left in it; a read past the end of a
    // short file delivers nothing new, and the sample is labelled and counted all the same.
    std::vector<double> x(dimNum > 0 ? static_cast<size_t>(dimNum) : 0, 0.0);
    char* const buffer = reinterpret_cast<char*>(x.data());
    const std::streamsize bytes = sampleBytes(dimNum);

    rtm::kmeansLloydPasses(
        *this, n,
        [&] {
            sampleFile.clear();
            sampleFile.seekg(kSampleFileHeaderBytes, std::ios_base::beg);
        },
        [&](int32_t) {
            sampleFile.read(buffer, bytes);
            return static_cast<const double*>(x.data());
        });

    std::ofstream labelFile;
    if (labelFileName != nullptr) labelFile.open(labelFileName, std::ios_base::binary);
    labelFile.write(reinterpret_cast<const char*>(&n), sizeof n);
    // Unlike before each pass, the stream is not cleared here: after a short file it stays
    // failed, the seek and every read deliver nothing, and each sample gets the label of what
    // the last pass left in the buffer. Existing label files were written this way.
    sampleFile.seekg(kSampleFileHeaderBytes, std::ios_base::beg);
    int label = -1;
    for (int32_t i = 0; i < n; ++i) {
        sampleFile.read(buffer, bytes);
        GetLabel(x.data(), &label);
        labelFile.write(reinterpret_cast<const char*>(&label), sizeof label);
    }
    labelFile.close();
    sampleFile.close();
}
