// The text model: the exact lines operator<< writes (tags as existing files carry them), the
// round trip through ReadModel, and the malformed models ReadModel must refuse without touching
// the means.
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "rtmonitor/KMeans.h"

const char kOneCluster[] =
    "<KMeans>\n<DimNum> 2 </DimNum>\n<ClusterNum> 1 </CluterNum>\n<Mean>\n1.5 2 \n</Mean>\n</KMeans>\n";

TEST(KMeansModelText, OneClusterModelIsWrittenLineForLine) {
    KMeans km(2, 1);
    km.means[0][0] = 1.5;
    km.means[0][1] = 2.0;
    std::ostringstream out;
    out << km;
    EXPECT_EQ(out.str(), kOneCluster);
}

TEST(KMeansModelText, ReaderRoundTripsTheWriter) {
    const double values[] = {0.1, -2.0 / 3.0, 1e300, -4.25, 12345.678901234567, -1e-300};
    KMeans source(3, 2), copy(3, 2);
    for (int i = 0; i < 6; ++i) source.means[i / 3][i % 3] = values[i];
    std::stringstream exact;
    exact.precision(17);  // every double comes back exactly
    exact << source;
    ASSERT_TRUE(copy.ReadModel(exact));
    for (int i = 0; i < 6; ++i) EXPECT_EQ(copy.means[i / 3][i % 3], values[i]) << i;
}

TEST(KMeansModelText, MalformedModelsAreRefusedAndChangeNothing) {
    const std::string head = "<KMeans>\n<DimNum> 2 </DimNum>\n<ClusterNum> 1 </CluterNum>\n<Mean>\n";
    const struct {
        std::string text;
        const char* message;
    } cases[] = {
        {"<Kmeans>\n", "expected <KMeans>"},
        {"<KMeans>\n<DimNum> 3 </DimNum>\n", "dimension 3 does not match"},
        {"<KMeans>\n<DimNum> 2.0 </DimNum>\n", "not a whole number"},
        {"<KMeans>\n<DimNum> 2 </DimNum>\n<ClusterNum> 1 </ClusterNum>\n", "line 3"},
        {"<KMeans>\n<DimNum> 2 </DimNum>\n<ClusterNum> 2 </CluterNum>\n", "cluster count 2"},
        {head + "1.5 2 3\n</Mean>\n</KMeans>\n", "cluster 0 has 3 values"},
        {head + "1.5 2x\n</Mean>\n</KMeans>\n", "\"2x\" is not a number"},
        {head, "ends before the means of cluster 0"},
        {head + "1.5 2\n</KMeans>\n", "expected </Mean>"},
    };
    for (const auto& c : cases) {
        KMeans km(2, 1);
        km.means[0][0] = 7.0;
        std::istringstream in(c.text);
        std::string error;
        EXPECT_FALSE(km.ReadModel(in, &error)) << c.text;
        EXPECT_NE(error.find(c.message), std::string::npos) << error;
        EXPECT_EQ(km.means[0][0], 7.0) << c.text;
    }
}
