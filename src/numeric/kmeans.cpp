// K-means clustering in memory: the model's storage and settings, the starting means, the
// nearest-mean labelling and the memory driver. Samples are dimNum doubles back to back;
// distances are Euclidean in the samples' own units.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "numeric/kmeans_index.h"
#include "numeric/kmeans_lloyd.h"
#include "rtmonitor/KMeans.h"

namespace {

// Copies sample `index` into `mean`. The random pick can fall one sample outside the data (its
// product wraps); that mean then keeps its value, as a failed read of a sample file leaves it.
void copySample(const double* data, int32_t n, int32_t index, int dimNum, double* mean) {
    if (index < 0 || index >= n || dimNum <= 0) return;
    std::memcpy(mean, data + static_cast<size_t>(index) * static_cast<size_t>(dimNum),
                sizeof(double) * static_cast<size_t>(dimNum));
}

}  // namespace

KMeans::KMeans(int dimensions, int clusters)
    : dimNum(dimensions), clusterNum(clusters), means(nullptr), initMode(InitRandom), iterLimit(100), stopRatio(0.001) {
    // A negative count throws std::bad_array_new_length here; free what was made before it.
    means = new double*[clusterNum];
    int made = 0;
    try {
        for (; made < clusterNum; ++made) means[made] = new double[dimNum]();
    } catch (...) {
        while (made > 0) delete[] means[--made];
        delete[] means;
        throw;
    }
}

KMeans::~KMeans() {
    for (int c = 0; c < clusterNum; ++c) delete[] means[c];
    delete[] means;
}

bool KMeans::SetInitMode(int mode) {
    if (mode != InitRandom && mode != InitManual && mode != InitUniform) return false;
    initMode = mode;
    return true;
}

void KMeans::SetIterLimit(int limit) { iterLimit = limit; }

void KMeans::SetStopRatio(double ratio) { stopRatio = ratio; }

bool KMeans::SetMean(int cluster, const double* mean) {
    if (cluster < 0 || cluster >= clusterNum || mean == nullptr) return false;
    if (dimNum > 0) std::memcpy(means[cluster], mean, sizeof(double) * static_cast<size_t>(dimNum));
    return true;
}

void KMeans::Init(double* data, int N) {
    if (initMode == InitRandom) {
        std::srand(static_cast<unsigned>(std::time(nullptr)));
        if (clusterNum <= 0) return;  // no slices to pick from
        const int32_t size = rtm::truncDiv32(N, clusterNum);
        for (int i = 0; i < clusterNum; ++i) {
            copySample(data, N, rtm::kmeansRandomIndex(i, size, std::rand()), dimNum, means[i]);
        }
    } else if (initMode == InitUniform) {
        for (int i = 0; i < clusterNum; ++i) {
            copySample(data, N, rtm::kmeansUniformIndex(i, N, clusterNum), dimNum, means[i]);
        }
    }
    // InitManual (and any other value): the means stay as they were set.
}

double KMeans::CalcDistance(const double* x, const double* u, int dims) {
    double sum = 0.0;
    for (int d = 0; d < dims; ++d) sum += (x[d] - u[d]) * (x[d] - u[d]);
    return std::sqrt(sum);
}

double KMeans::GetLabel(const double* x, int* label) {
    double best = -1.0;
    for (int c = 0; c < clusterNum; ++c) {
        const double distance = CalcDistance(x, means[c], dimNum);
        // Strictly smaller: a sample halfway between two means stays with the lower index.
        if (distance < best || best == -1.0) {
            best = distance;
            *label = c;
        }
    }
    return best;
}

void KMeans::Cluster(double* data, int N, int* labels) {
    Init(data, N);
    const size_t stride = dimNum > 0 ? static_cast<size_t>(dimNum) : 0;
    rtm::kmeansLloydPasses(
        *this, N, [] {}, [&](int32_t i) { return data + static_cast<size_t>(i) * stride; });

    int label = -1;
    for (int i = 0; i < N; ++i) {
        GetLabel(data + static_cast<size_t>(i) * stride, &label);
        labels[i] = label;
    }
}
