// Opening a recording by its file name: WFDB records through the tool's own reader, EDF/EDF+/
// BDF/BDF+ through EDFlib (each signal at its own rate, EDF+ annotations kept), when built with it.
#include "formats/record_reader.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "formats/edf_header.h"
#include "formats/wfdb_reader.h"

#ifdef RTM_HAVE_EDFLIB
#include <edflib.h>
#endif

namespace rtmfmt {
namespace {

std::string lowerExtension(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string e = path.substr(dot + 1);
    for (char& c : e) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return e;
}

bool isRegularFile(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::unique_ptr<RecordReader> openWfdb(const std::string& path, std::string& error) {
    const std::string hea = lowerExtension(path) == "hea" ? path : path + ".hea";
    if (!isRegularFile(hea)) {
        error = hea + ": no such header file";
        return nullptr;
    }
    std::ifstream f(hea, std::ios::binary);
    std::ostringstream text;
    text << f.rdbuf();
    if (!f && !f.eof()) {
        error = hea + ": cannot read";
        return nullptr;
    }
    WfdbHeader header;
    if (!parseWfdbHeader(text.str(), header, error)) {
        error = hea + ": " + error;
        return nullptr;
    }
    const size_t slash = hea.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "." : hea.substr(0, slash);
    auto record = std::make_unique<WfdbRecord>();
    if (!record->open(hea, header, diskOpener(dir), error)) return nullptr;
    return record;
}

#ifdef RTM_HAVE_EDFLIB
const char* edfOpenError(int code) {
    switch (code) {
        case EDFLIB_NO_SUCH_FILE_OR_DIRECTORY: return "no such file";
        case EDFLIB_FILE_CONTAINS_FORMAT_ERRORS:
            return "not a valid EDF/EDF+/BDF/BDF+ file (format errors in the header)";
        case EDFLIB_FILE_READ_ERROR: return "read error";
        case EDFLIB_FILE_IS_DISCONTINUOUS: return "discontinuous EDF+D/BDF+D files are not supported";
        case EDFLIB_MAXFILES_REACHED: return "too many open files";
        case EDFLIB_MALLOC_ERROR: return "out of memory";
        default: return "cannot be read as EDF/BDF";
    }
}

class EdfRecord : public RecordReader {
public:
    ~EdfRecord() override {
        if (open_) edfclose_file(hdr_.handle);
    }
    bool open(const std::string& path, std::string& error) {
        path_ = path;
        if (edfopen_file_readonly(path.c_str(), &hdr_, EDFLIB_READ_ALL_ANNOTATIONS) != 0) {
            if (hdr_.filetype != EDFLIB_FILE_CONTAINS_FORMAT_ERRORS) {
                error = path + ": " + edfOpenError(hdr_.filetype);
                return false;
            }
            if (!openTolerating(path, error)) return false;
        }
        open_ = true;
        if (hdr_.datarecord_duration <= 0) {
            error = path + ": data records of zero duration";
            return false;
        }
        const double recordSeconds = static_cast<double>(hdr_.datarecord_duration) / EDFLIB_TIME_DIMENSION;
        for (int s = 0; s < hdr_.edfsignals; ++s) {
            const edf_param_struct& p = hdr_.signalparam[s];
            ChannelInfo c;
            c.label = trim(p.label);
            c.unit = trim(p.physdimension);
            c.rate = p.smp_in_datarecord / recordSeconds;
            channels_.push_back(c);
        }
        // About a second per block, whole data records only.
        recordsPerBlock_ = std::max<long long>(1, static_cast<long long>(1.0 / recordSeconds));
        for (long long i = 0; i < hdr_.annotations_in_file; ++i) {
            edf_annotation_struct a;
            if (edf_get_annotation(hdr_.handle, static_cast<int>(i), &a) != 0) continue;
            annotations_.push_back({static_cast<double>(a.onset) / EDFLIB_TIME_DIMENSION, trim(a.annotation)});
        }
        return true;
    }
    const std::vector<ChannelInfo>& channels() const override { return channels_; }
    double duration() const override {
        return static_cast<double>(hdr_.datarecords_in_file) * hdr_.datarecord_duration / EDFLIB_TIME_DIMENSION;
    }
    bool readBlock(std::vector<std::vector<double>>& blocks, std::string& error) override {
        error.clear();
        if (recordsRead_ >= hdr_.datarecords_in_file) return false;
        const long long n = std::min(recordsPerBlock_, hdr_.datarecords_in_file - recordsRead_);
        blocks.assign(channels_.size(), {});
        for (size_t s = 0; s < channels_.size(); ++s) {
            const int count = static_cast<int>(n * hdr_.signalparam[s].smp_in_datarecord);
            blocks[s].resize(static_cast<size_t>(count));
            if (count > 0 &&
                edfread_physical_samples(hdr_.handle, static_cast<int>(s), count, blocks[s].data()) != count) {
                error = path_ + ": read error in signal '" + channels_[s].label + "' at data record " +
                        std::to_string(recordsRead_);
                return false;
            }
        }
        recordsRead_ += n;
        return true;
    }
    bool rewind(std::string&) override {
        for (size_t s = 0; s < channels_.size(); ++s) edfseek(hdr_.handle, static_cast<int>(s), 0, EDFSEEK_SET);
        recordsRead_ = 0;
        return true;
    }
    std::vector<Annotation> embeddedAnnotations() const override { return annotations_; }
    std::vector<std::string> inputFiles() const override { return {path_}; }
    std::vector<std::string> notes() const override { return notes_; }

private:
    // The EDF reader says only "format errors": find the field ourselves. A header whose only
    // fault is bytes outside printable ASCII (names with accents, say) is read from a copy with
    // those bytes as spaces, and the note says so.
    bool openTolerating(const std::string& path, std::string& error) {
        const std::string refused = path + ": not a valid EDF/EDF+/BDF/BDF+ header: ";
        std::string header;
        if (!readEdfHeader(path, header)) {
            error = path + ": cannot read";
            return false;
        }
        const EdfHeaderFindings f = examineEdfHeader(header);
        if (!f.fault.empty()) {
            error = refused + f.fault + (f.nonAscii.empty() ? "" : "; also " + f.firstNonAscii + " is not ASCII");
            return false;
        }
        if (f.nonAscii.empty()) {
            error = refused +
                    "every field is well formed ASCII, so the fault is in how they fit together (EDF+ "
                    "subfields of the identification fields, start date or time, or the file size against "
                    "the number of data records)";
            return false;
        }
        std::string copy;
        if (!copyWithSpaces(path, f.nonAscii, copy, error)) return false;
        const int r = edfopen_file_readonly(copy.c_str(), &hdr_, EDFLIB_READ_ALL_ANNOTATIONS);
        std::remove(copy.c_str());  // the reader keeps its own handle on the copy
        const std::string what =
            f.firstNonAscii +
            (f.nonAscii.size() > 1 ? " and " + std::to_string(f.nonAscii.size() - 1) + " more such bytes" : "");
        if (r != 0) {
            error = refused + what +
                    ": header fields hold printable ASCII (32..126) only; even with those bytes "
                    "read as spaces the file is refused (" +
                    edfOpenError(hdr_.filetype) + ")";
            return false;
        }
        notes_.push_back("header: " + what + " (fields: " + f.nonAsciiFields +
                         "); header fields hold printable ASCII (32..126) only, so these bytes were read as spaces");
        return true;
    }

    static std::string trim(const char* s) {
        std::string t = s;
        while (!t.empty() && (t.back() == ' ' || t.back() == '\0')) t.pop_back();
        while (!t.empty() && t.front() == ' ') t.erase(t.begin());
        return t;
    }
    std::string path_;
    edf_hdr_struct hdr_{};
    bool open_ = false;
    std::vector<ChannelInfo> channels_;
    std::vector<Annotation> annotations_;
    std::vector<std::string> notes_;
    long long recordsPerBlock_ = 1, recordsRead_ = 0;
};
#endif

}  // namespace

bool edfSupported() {
#ifdef RTM_HAVE_EDFLIB
    return true;
#else
    return false;
#endif
}

bool isRecordingPath(const std::string& path) {
    const std::string e = lowerExtension(path);
    if (e == "hea" || e == "edf" || e == "bdf") return true;
    return !isRegularFile(path) && isRegularFile(path + ".hea");
}

std::unique_ptr<RecordReader> openRecording(const std::string& path, std::string& error) {
    const std::string e = lowerExtension(path);
    if (e == "edf" || e == "bdf") {
#ifdef RTM_HAVE_EDFLIB
        if (!isRegularFile(path)) {
            error = path + ": no such file";
            return nullptr;
        }
        auto r = std::make_unique<EdfRecord>();
        if (!r->open(path, error)) return nullptr;
        return r;
#else
        error = path +
                ": this build of rtmonitor reads no EDF/BDF files (EDFlib was not found when it was "
                "built); install libedf-dev and rebuild, or convert the file to WFDB";
        return nullptr;
#endif
    }
    return openWfdb(path, error);
}

}  // namespace rtmfmt
