// WFDB records: the header (NAME.hea), its signal files in formats 8, 16, 24, 32, 61, 80, 160
// and 212 (several samples per frame, skew, byte offsets, signals spread over several files) and
// MIT-format annotation files (.atr and the like). Physical value = (stored - baseline) / gain
// in the signal's units; stored invalid-sample codes become NaN. Multi-segment records and
// formats 310/311 are refused with a message saying so.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "formats/byte_source.h"
#include "formats/record_reader.h"

namespace rtmfmt {

struct WfdbSignalSpec {
    std::string file;
    int format = 0;
    int samplesPerFrame = 1;
    int skew = 0;
    uint64_t byteOffset = 0;
    double gain = 200;  // stored units per physical unit
    double baseline = 0;
    std::string units = "mV";
    int initialValue = 0;  // first sample, needed by the difference format 8
    std::string description;
};

struct WfdbHeader {
    std::string name;
    double frameRate = 250;  // frames per second
    double counterRate = 0;  // counter frequency as stated (not needed for reading)
    uint64_t frames = 0;     // 0 = unknown, read to the end of the signal files
    std::vector<WfdbSignalSpec> signals;
};

// Parses a header's text; false with `error` naming the line and what is wrong.
bool parseWfdbHeader(const std::string& text, WfdbHeader& header, std::string& error);

class WfdbRecord : public RecordReader {
public:
    // `headerName` is used in messages; signal files are opened through `opener`.
    bool open(const std::string& headerName, const WfdbHeader& header, SourceOpener opener, std::string& error);

    const std::vector<ChannelInfo>& channels() const override { return channels_; }
    double duration() const override;
    bool readBlock(std::vector<std::vector<double>>& blocks, std::string& error) override;
    bool rewind(std::string& error) override;
    uint64_t frames() const { return frames_; }
    std::vector<std::string> inputFiles() const override;

private:
    struct Group {
        std::string file;
        int format = 0;
        uint64_t byteOffset = 0;
        std::vector<size_t> signals;  // indices into header_.signals, in frame order
        size_t samplesPerFrame = 0;   // of the whole group
        std::unique_ptr<ByteSource> source;
        std::vector<unsigned char> buffer;
        size_t bufferPos = 0, bufferEnd = 0;
        int pendingHigh = 0;  // format 212: the second sample of a pair
        bool havePending = false;
        std::vector<long long> last;  // format 8: running value per group sample slot
        uint64_t frames = 0;          // stored frames to read: the record's, plus what skew moves past its end
        uint64_t framesRead = 0;
    };
    bool openGroups(std::string& error);
    bool readStoredFrame(Group& g, std::string& error);
    bool nextByte(Group& g, unsigned char& b);
    bool nextSample(Group& g, size_t slot, long long& value, bool& invalid);

    std::string headerName_;
    WfdbHeader header_;
    SourceOpener opener_;
    std::vector<ChannelInfo> channels_;
    std::vector<Group> groups_;
    std::vector<size_t> groupOf_;             // per signal, its group
    std::vector<std::deque<double>> queues_;  // physical samples per signal, skew applied
    std::vector<uint64_t> toDrop_;            // samples still to drop for skew
    uint64_t frames_ = 0;                     // output frames in the record
    uint64_t emitted_ = 0;
};

// Reads an MIT-format annotation file. `frameRate` converts annotation times to seconds unless
// the file states its own time resolution. Only a well-formed file is accepted.
bool readWfdbAnnotations(ByteSource& source, double frameRate, std::vector<Annotation>& out, std::string& error);

// The mnemonic of an MIT annotation code ("N" for 1, "V" for 5 ...); "" for an unknown code.
std::string wfdbAnnotationLabel(int code);

}  // namespace rtmfmt
