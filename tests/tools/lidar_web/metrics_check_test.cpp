// What Prometheus' own checker says of a live scrape.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "served_ring.h"
#include "support/child_process.h"
#include "support/temp_dir.h"
#include "web_client.h"

namespace kerul::lidar::web {
namespace {

TEST(WebMetrics, PrometheusOwnCheckerFindsNothing) {
  WebOptions options;
  const testing::TempDir folder;
  options.node_log = folder.Write("node.log", std::string());
  ServedRing served(options);
  while (Get(served.Port(), "/healthz").status != 200) served.PublishFrame();
  const Answer scrape = Get(served.Port(), "/metrics");
  EXPECT_TRUE(scrape.HasHeader("content-type: text/plain; version=0.0.4; charset=utf-8"));
  EXPECT_THAT(scrape.body, ::testing::HasSubstr("place=\"before_host\"} 0\n"));
  folder.Write("scrape", scrape.body);
  const std::string check =
      "PATH=\"$PATH:" KERUL_SOURCE_DIR "/build/promtool/usr/bin\" promtool check metrics <scrape";
  testing::ChildProcess promtool({"/bin/sh", "-c", check}, folder.path());
  EXPECT_EQ(promtool.WaitForExit(), 0)
      << promtool.Out() << promtool.Err() << "promtool comes with scripts/install_dependencies.sh";
  EXPECT_EQ(promtool.Out() + promtool.Err(), "");
}

}  // namespace
}  // namespace kerul::lidar::web
