// A recording in a standard format seen as named channels of physical samples, each at its own
// rate, read block by block (about a second at a time) so records of any length stream through.
// Samples the recording marks as invalid arrive as NaN. Implemented for WFDB records (no library
// needed) and EDF/EDF+/BDF/BDF+ files (through EDFlib, when the tool is built with it).
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace rtmfmt {

struct ChannelInfo {
    std::string label;
    std::string unit;  // physical unit as the file states it ("mV", "uV", "g", ...)
    double rate = 0;   // samples per second
};

// A reference annotation: time in seconds from the start and the beat or event label.
struct Annotation {
    double time = 0;
    std::string label;  // "N", "V", "+" ... for WFDB; the annotation text for EDF+
};

class RecordReader {
public:
    virtual ~RecordReader() = default;
    virtual const std::vector<ChannelInfo>& channels() const = 0;
    virtual double duration() const = 0;  // seconds
    // The next block for every channel (blocks[c] holds channel c's samples). False at the end
    // (error empty) or on a read problem (error says which file and what).
    virtual bool readBlock(std::vector<std::vector<double>>& blocks, std::string& error) = 0;
    // Back to the first sample; false with `error` set when that fails.
    virtual bool rewind(std::string& error) = 0;
    // The files the recording is read from, so that no output replaces one of them.
    virtual std::vector<std::string> inputFiles() const = 0;
    // Annotations stored with the signals (EDF+); WFDB keeps them in separate files.
    virtual std::vector<Annotation> embeddedAnnotations() const { return {}; }
    // What was tolerated in reading the file (e.g. non-ASCII header bytes read as spaces).
    virtual std::vector<std::string> notes() const { return {}; }
};

// True when `path` names a recording this tool reads (.hea, .edf, .bdf, or a WFDB record name
// given without its .hea) rather than a frame file.
bool isRecordingPath(const std::string& path);

// Opens a WFDB record (NAME or NAME.hea) or an EDF/BDF file; null with `error` set (naming the
// file and the problem) on failure.
std::unique_ptr<RecordReader> openRecording(const std::string& path, std::string& error);

// True when EDF/BDF files can be read in this build.
bool edfSupported();

// The beat labels of WFDB annotation codes (normal, bundle-branch, premature, escape, paced,
// fusion, unclassified); rhythm, noise and comment annotations are not beats.
bool isBeatLabel(const std::string& label);

}  // namespace rtmfmt
