// K-means clustering (Lloyd's iteration) of fixed-dimension sample vectors of doubles, from an
// array in memory or from a binary sample file, with a small tagged text model of the means.
// Binary sample file, native byte order: int32 count N, int32 dimension (not checked), then
// N samples of dimNum doubles. Label file: int32 N, then N int32 labels in sample order.
// Not used by the frame pipeline; offered to host programs as it is.
#pragma once

#include <iosfwd>
#include <string>

class KMeans {
public:
    // Values of initMode.
    enum InitModes {
        InitRandom = 0,   // one sample picked at random from each of K equal slices of the data
        InitManual = 1,   // keep the means as they stand (see SetMean, ReadModel)
        InitUniform = 2,  // sample i*N/K becomes mean i
    };

    // Allocates K mean vectors of dimNum doubles, all 0.0. A negative count throws
    // std::bad_array_new_length; nothing is leaked.
    KMeans(int dimNum, int clusterNum);
    ~KMeans();
    // The object owns its mean arrays; copying would share them.
    KMeans(const KMeans&) = delete;
    KMeans& operator=(const KMeans&) = delete;

    // Choose the starting means from N samples of dimNum doubles, back to back, by initMode.
    // Random mode seeds rand() with the calendar time. A picked index outside 0..N-1 (the
    // random pick can step one before its slice) leaves that mean as it was.
    // With no clusters there is nothing to pick: random and uniform then do nothing.
    void Init(double* data, int N);
    // The same from an open binary sample file; failed seeks and short reads leave the means
    // (or the bytes of them not delivered) as they were.
    void Init(std::ifstream& file);

    // Euclidean distance between two vectors of dimNum doubles; 0.0 when dimNum < 1.
    double CalcDistance(const double* x, const double* u, int dimNum);
    // Distance from x to the nearest mean; that mean's index goes to *label (ties keep the
    // lower index). With no clusters: returns -1 and leaves *label untouched.
    double GetLabel(const double* x, int* label);

    // Cluster N samples in memory and write one label per sample to labels[0..N-1].
    // Stops after iterLimit passes (at least one) or when three passes (not necessarily in a
    // row) changed the mean cost by less than stopRatio times the previous cost.
    void Cluster(double* data, int N, int* labels);
    // The same for a binary sample file, writing a binary label file. Nothing is checked: a
    // file shorter than its count still gets N labels, all of them that of whatever the last
    // pass left in the sample buffer, since the stream stays failed (a missing file reads as a
    // count of 0).
    void Cluster(const char* sampleFileName, const char* labelFileName);

    // Returns false (and changes nothing) for a mode other than InitRandom/Manual/Uniform.
    bool SetInitMode(int mode);
    // Passes at most; a value below 1 still runs one pass.
    void SetIterLimit(int limit);
    // Relative change of the mean cost below which a pass counts as unchanged.
    void SetStopRatio(double ratio);
    // Copies dimNum doubles into mean `cluster`; returns false (and changes nothing) when
    // cluster is outside 0..clusterNum-1 or mean is null. Used with InitManual.
    bool SetMean(int cluster, const double* mean);

    // Reads a text model as operator<< writes it (leading white space skipped, a '\r' before
    // each newline tolerated, everything after "</KMeans>" left in the stream) and makes its
    // means this object's means. Init(std::ifstream&) keeps reading binary sample files, as
    // existing hosts use it; a model is read back here (then cluster with InitManual).
    // Errors are reported by return value, never by exception: on a missing or misspelt tag,
    // a dimension or cluster count that differs from this object's, a mean line with a wrong
    // count of values, or a value that is not a number, it returns false, leaves the means
    // unchanged, and puts a message naming the line and the problem into *error (if given).
    // The stream is left after the last line read.
    bool ReadModel(std::istream& in, std::string* error = nullptr);

    // Members in this order. Hosts may read them all and set initMode, iterLimit, stopRatio and
    // the mean values directly; dimNum, clusterNum and the means pointer belong to the object.
    int dimNum;
    int clusterNum;
    double** means;  // clusterNum arrays of dimNum doubles
    int initMode;
    int iterLimit;
    double stopRatio;
};

// Writes the text model: "<KMeans>", "<DimNum> d </DimNum>", "<ClusterNum> k </CluterNum>"
// (existing model files carry this closing tag as written), "<Mean>", one line per cluster with
// each value followed by a blank, "</Mean>", "</KMeans>"; every line ends with std::endl.
// Values use the stream's current floating-point format (precision 6 unless the caller set
// another; set precision 17 for an exact round trip).
std::ostream& operator<<(std::ostream& out, KMeans& kmeans);
// KMeans::ReadModel; on an error sets failbit on the stream.
std::istream& operator>>(std::istream& in, KMeans& kmeans);
