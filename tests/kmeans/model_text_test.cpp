// The text model: the exact lines operator<< writes (tags as existing files carry them), the
// round trip through ReadModel, and every kind of malformed model ReadModel must refuse
// without touching the means.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>

#include "rtmonitor/KMeans.h"

namespace {

const char kOneCluster[] =
    "<KMeans>\n"
    "<DimNum> 2 </DimNum>\n"
    "<ClusterNum> 1 </CluterNum>\n"
    "<Mean>\n"
    "1.5 2 \n"
    "</Mean>\n"
    "</KMeans>\n";

// Two clusters of dimension 3 with a recognisable mean that a failed read must leave alone.
void fillSentinel(KMeans& km) {
    for (int c = 0; c < 2; ++c)
        for (int d = 0; d < 3; ++d) km.means[c][d] = 100.0 + 10 * c + d;
}

bool sentinelIntact(const KMeans& km) {
    for (int c = 0; c < 2; ++c)
        for (int d = 0; d < 3; ++d)
            if (km.means[c][d] != 100.0 + 10 * c + d) return false;
    return true;
}

std::string twoByThree(const std::string& dimLine, const std::string& clusterLine,
                       const std::string& mean0, const std::string& mean1,
                       const std::string& tail = "</Mean>\n</KMeans>\n") {
    return "<KMeans>\n" + dimLine + "\n" + clusterLine + "\n<Mean>\n" + mean0 + "\n" + mean1 +
           "\n" + tail;
}

const std::string kDim = "<DimNum> 3 </DimNum>";
const std::string kClusters = "<ClusterNum> 2 </CluterNum>";
const std::string kMean0 = "1 2 3 ";
const std::string kMean1 = "-4.25 5e-07 6 ";

}  // namespace

TEST(KMeansModelText, OneClusterModelIsWrittenLineForLine) {
    KMeans km(2, 1);
    const double mean[] = {1.5, 2.0};
    ASSERT_TRUE(km.SetMean(0, mean));
    std::ostringstream out;
    out << km;
    EXPECT_EQ(out.str(), kOneCluster);
}

TEST(KMeansModelText, ReaderRoundTripsTheWriter) {
    KMeans source(3, 2);
    const double m0[] = {0.1, -2.0 / 3.0, 1e300};
    const double m1[] = {-0.0, 12345.678901234567, std::numeric_limits<double>::infinity()};
    source.SetMean(0, m0);
    source.SetMean(1, m1);

    // With 17 digits every double comes back exactly.
    std::stringstream exact;
    exact.precision(17);
    exact << source;
    KMeans copy(3, 2);
    std::string error;
    ASSERT_TRUE(copy.ReadModel(exact, &error)) << error;
    for (int c = 0; c < 2; ++c)
        for (int d = 0; d < 3; ++d) EXPECT_EQ(copy.means[c][d], source.means[c][d]) << c << d;
    EXPECT_TRUE(std::signbit(copy.means[1][0]));

    // In the default format the values come back as written: writing again gives the same text.
    std::stringstream first;
    first << source;
    KMeans reread(3, 2);
    ASSERT_TRUE(reread.ReadModel(first, &error)) << error;
    std::ostringstream second;
    second << reread;
    EXPECT_EQ(second.str(), first.str());
    EXPECT_EQ(reread.means[0][1], -0.666667);

    // Two models back to back, read with operator>>; the one-cluster text from above too.
    std::stringstream both;
    both << source << "\n" << source;
    KMeans a(3, 2), b(3, 2);
    EXPECT_TRUE(both >> a >> b);
    std::istringstream one(kOneCluster);
    KMeans small(2, 1);
    ASSERT_TRUE(small.ReadModel(one, &error)) << error;
    EXPECT_EQ(small.means[0][0], 1.5);
    EXPECT_EQ(small.means[0][1], 2.0);
}

TEST(KMeansModelText, WindowsLineEndsAndNanAreRead) {
    std::string text = twoByThree(kDim, kClusters, "nan 2 3 ", kMean1);
    std::string crlf;
    for (char ch : text) crlf += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
    std::istringstream in(crlf);
    KMeans km(3, 2);
    std::string error;
    ASSERT_TRUE(km.ReadModel(in, &error)) << error;
    EXPECT_TRUE(std::isnan(km.means[0][0]));
    EXPECT_EQ(km.means[1][1], 5e-07);
}

TEST(KMeansModelText, MalformedModelsAreRefusedAndChangeNothing) {
    struct Case {
        const char* what;
        std::string text;
        const char* expectInMessage;
    };
    const Case cases[] = {
        {"empty stream", "", "ends before <KMeans>"},
        {"opening tag misspelt", "<Kmeans>\n" + twoByThree(kDim, kClusters, kMean0, kMean1).substr(9),
         "expected <KMeans>"},
        {"dimension tag missing", twoByThree("3", kClusters, kMean0, kMean1), "line 2"},
        {"dimension closing tag misspelt", twoByThree("<DimNum> 3 </Dimnum>", kClusters, kMean0, kMean1),
         "line 2"},
        // The cluster count closes with "</CluterNum>" in every written model; the correctly
        // spelt tag is not what the format holds.
        {"cluster closing tag spelt otherwise", twoByThree(kDim, "<ClusterNum> 2 </ClusterNum>", kMean0, kMean1),
         "line 3"},
        {"dimension differs", twoByThree("<DimNum> 2 </DimNum>", kClusters, "1 2 ", "3 4 "),
         "dimension 2 does not match"},
        {"cluster count differs", twoByThree(kDim, "<ClusterNum> 3 </CluterNum>", kMean0, kMean1),
         "cluster count 3 does not match"},
        {"dimension not a whole number", twoByThree("<DimNum> 3.0 </DimNum>", kClusters, kMean0, kMean1),
         "not a whole number"},
        {"mean tag missing", "<KMeans>\n" + kDim + "\n" + kClusters + "\n" + kMean0 + "\n" + kMean1 +
                                 "\n</Mean>\n</KMeans>\n",
         "expected <Mean>"},
        {"too few values", twoByThree(kDim, kClusters, kMean0, "4 5"), "cluster 1 has 2 values"},
        {"too many values", twoByThree(kDim, kClusters, "1 2 3 4", kMean1), "cluster 0 has 4 values"},
        {"values spread over lines", twoByThree(kDim, kClusters, "1 2 3 4 5", "6"), "cluster 0 has 5"},
        {"not a number", twoByThree(kDim, kClusters, kMean0, "4 five 6"), "\"five\" is not a number"},
        {"number with trailing junk", twoByThree(kDim, kClusters, "1 2 3x", kMean1), "\"3x\""},
        {"locale comma", twoByThree(kDim, kClusters, "1 2,5 3", kMean1), "\"2,5\""},
        {"means end early", "<KMeans>\n" + kDim + "\n" + kClusters + "\n<Mean>\n" + kMean0 + "\n",
         "ends before the means of cluster 1"},
        {"closing mean tag missing", twoByThree(kDim, kClusters, kMean0, kMean1, "</KMeans>\n"),
         "expected </Mean>"},
        {"closing model tag missing", twoByThree(kDim, kClusters, kMean0, kMean1, "</Mean>\n"),
         "ends before </KMeans>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        KMeans km(3, 2);
        fillSentinel(km);
        std::istringstream in(c.text);
        std::string error;
        EXPECT_FALSE(km.ReadModel(in, &error));
        EXPECT_NE(error.find(c.expectInMessage), std::string::npos) << error;
        EXPECT_NE(error.find("line"), std::string::npos) << error;
        EXPECT_TRUE(sentinelIntact(km));

        std::istringstream again(c.text);
        EXPECT_FALSE(again >> km);
        EXPECT_TRUE(sentinelIntact(km));
    }
}
