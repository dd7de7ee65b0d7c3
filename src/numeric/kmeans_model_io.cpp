// The k-means text model: operator<< writes the tagged model (dimension, cluster count, one
// line of means per cluster); ReadModel reads it back into a model of the same shape and
// rejects anything else with a message, leaving the means untouched.
#include <charconv>
#include <cstddef>
#include <cstring>
#include <istream>
#include <ostream>
#include <string>
#include <system_error>
#include <vector>

#include "rtmonitor/KMeans.h"

std::ostream& operator<<(std::ostream& out, KMeans& kmeans) {
    out << "<KMeans>" << std::endl;
    out << "<DimNum> " << kmeans.dimNum << " </DimNum>" << std::endl;
    // "</CluterNum>" is the closing tag existing model files carry; keep it as it is.
    out << "<ClusterNum> " << kmeans.clusterNum << " </CluterNum>" << std::endl;
    out << "<Mean>" << std::endl;
    for (int c = 0; c < kmeans.clusterNum; ++c) {
        for (int d = 0; d < kmeans.dimNum; ++d) out << kmeans.means[c][d] << " ";
        out << std::endl;
    }
    out << "</Mean>" << std::endl;
    out << "</KMeans>" << std::endl;
    return out;
}

namespace {

// Reads one model line at a time and splits it into blank-separated words.
class ModelLines {
public:
    explicit ModelLines(std::istream& in) : in_(in) {}

    // False at the end of the stream.
    bool next(std::vector<std::string>& words) {
        std::string line;
        if (!std::getline(in_, line)) return false;
        ++lineNumber_;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        words.clear();
        size_t pos = 0;
        while (pos < line.size()) {
            const size_t start = line.find_first_not_of(" \t", pos);
            if (start == std::string::npos) break;
            size_t end = line.find_first_of(" \t", start);
            if (end == std::string::npos) end = line.size();
            words.push_back(line.substr(start, end - start));
            pos = end;
        }
        return true;
    }

    int lineNumber() const { return lineNumber_; }

private:
    std::istream& in_;
    int lineNumber_ = 0;
};

bool parseInt(const std::string& word, int* value) {
    const char* end = word.data() + word.size();
    const auto result = std::from_chars(word.data(), end, *value);
    return result.ec == std::errc() && result.ptr == end;
}

// Accepts what operator<< writes for a double in any precision or notation, including "inf",
// "-inf" and "nan"; independent of the global locale.
bool parseDouble(const std::string& word, double* value) {
    const char* begin = word.data();
    const char* end = begin + word.size();
    if (begin != end && *begin == '+') ++begin;  // from_chars refuses a leading '+'
    const auto result = std::from_chars(begin, end, *value);
    return result.ec == std::errc() && result.ptr == end && begin != end;
}

std::string quoted(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& w : words) text += (text.empty() ? "" : " ") + w;
    return "\"" + text + "\"";
}

class ModelReader {
public:
    ModelReader(std::istream& in, int dimNum, int clusterNum) : lines_(in), dimNum_(dimNum), clusterNum_(clusterNum) {}

    // On success the means, cluster after cluster, are in values().
    bool read() {
        std::vector<std::string> words;
        if (!expectTag(words, "<KMeans>")) return false;
        int dim = 0;
        if (!expectCount(words, "<DimNum>", "</DimNum>", "dimension", &dim)) return false;
        if (dim != dimNum_) {
            return fail("dimension " + std::to_string(dim) + " does not match the model's " + std::to_string(dimNum_));
        }
        int clusters = 0;
        if (!expectCount(words, "<ClusterNum>", "</CluterNum>", "cluster count", &clusters)) {
            return false;
        }
        if (clusters != clusterNum_) {
            return fail("cluster count " + std::to_string(clusters) + " does not match the model's " +
                        std::to_string(clusterNum_));
        }
        if (!expectTag(words, "<Mean>")) return false;
        for (int c = 0; c < clusterNum_; ++c) {
            if (!lines_.next(words)) return fail("the stream ends before the means of cluster " + std::to_string(c));
            if (words.size() != static_cast<size_t>(dimNum_)) {
                return fail("cluster " + std::to_string(c) + " has " + std::to_string(words.size()) +
                            " values, expected " + std::to_string(dimNum_));
            }
            for (const std::string& w : words) {
                double v = 0.0;
                if (!parseDouble(w, &v)) return fail("\"" + w + "\" is not a number");
                values_.push_back(v);
            }
        }
        if (!expectTag(words, "</Mean>")) return false;
        return expectTag(words, "</KMeans>");
    }

    const std::vector<double>& values() const { return values_; }
    const std::string& error() const { return error_; }

private:
    bool fail(const std::string& message) {
        error_ = "k-means model, line " + std::to_string(lines_.lineNumber()) + ": " + message;
        return false;
    }

    bool expectTag(std::vector<std::string>& words, const char* tag) {
        if (!lines_.next(words)) return fail(std::string("the stream ends before ") + tag);
        if (words.size() != 1 || words[0] != tag) {
            return fail(std::string("expected ") + tag + ", found " + quoted(words));
        }
        return true;
    }

    // A line "<open> count </close>".
    bool expectCount(std::vector<std::string>& words, const char* open, const char* close, const char* what,
                     int* count) {
        if (!lines_.next(words)) return fail(std::string("the stream ends before ") + open);
        const std::string expected = std::string(open) + " <" + what + "> " + close;
        if (words.size() != 3 || words[0] != open || words[2] != close) {
            return fail("expected \"" + expected + "\", found " + quoted(words));
        }
        if (!parseInt(words[1], count)) {
            return fail(std::string(what) + " \"" + words[1] + "\" is not a whole number");
        }
        return true;
    }

    ModelLines lines_;
    int dimNum_;
    int clusterNum_;
    std::vector<double> values_;
    std::string error_;
};

}  // namespace

bool KMeans::ReadModel(std::istream& in, std::string* error) {
    in >> std::ws;
    ModelReader reader(in, dimNum, clusterNum);
    if (!reader.read()) {
        if (error != nullptr) *error = reader.error();
        return false;
    }
    // Only a complete, valid model replaces the means.
    const std::vector<double>& values = reader.values();
    for (int c = 0; c < clusterNum; ++c) {
        for (int d = 0; d < dimNum; ++d) {
            means[c][d] = values[static_cast<size_t>(c) * static_cast<size_t>(dimNum) + static_cast<size_t>(d)];
        }
    }
    return true;
}

std::istream& operator>>(std::istream& in, KMeans& kmeans) {
    if (!kmeans.ReadModel(in)) in.setstate(std::ios_base::failbit);
    return in;
}
