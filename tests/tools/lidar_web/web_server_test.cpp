// HTTP of the running server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "served_ring.h"
#include "web_client.h"

namespace kerul::lidar::web {
namespace {

using ::testing::HasSubstr;

// Asks until the answer has this status.
Answer GetUntil(int port, const std::string& path, int status) {
  Answer answer;
  for (int i = 0; i < 6000; ++i) {
    answer = Get(port, path);
    if (answer.status == status) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return answer;
}

TEST(WebServer, ServesThePage) {
  const ServedRing served;
  const Answer page = Get(served.Port(), "/?view=top");
  EXPECT_EQ(page.status, 200);
  EXPECT_EQ(page.body, "<!doctype html>");
  EXPECT_TRUE(page.HasHeader("content-type: text/html; charset=utf-8")) << page.head;
  EXPECT_THAT(page.head, HasSubstr("content-security-policy: default-src 'none'; "));
  EXPECT_TRUE(page.HasHeader("x-content-type-options: nosniff"));
  EXPECT_EQ(Get(served.Port(), "/page.js").body, "let plain;");
  const Answer packed = Get(served.Port(), "/page.js", "Accept-Encoding: gzip, br\r\n");
  EXPECT_EQ(packed.body, "packed");
  EXPECT_TRUE(packed.HasHeader("content-encoding: gzip"));
  EXPECT_TRUE(packed.HasHeader("content-type: text/javascript; charset=utf-8"));
  const Answer head = Request(served.Port(), "HEAD /page.js");
  EXPECT_EQ(head.status, 200);
  EXPECT_TRUE(head.HasHeader("content-length: 10")) << head.head;
}

TEST(WebServer, AConnectionTakesSeveralRequests) {
  const ServedRing served;
  Connection connection(served.Port());
  for (int i = 0; i < 3; ++i) {
    connection.Send("GET /page.js HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_EQ(ReadAnswer(connection).body, "let plain;");
  }
}

TEST(WebServer, PathTricksFindNothing) {
  const ServedRing served;
  for (const char* path : {"/../index.html", "/..%2f..%2fetc%2fpasswd", "/%2e%2e/etc/passwd",
                           "/.git/config", "//etc/passwd", "/page.js%00.png", "/page.js/", "/none",
                           "/%ff", "/~root", "/..\\..\\x", "/;/page.js", "/page.js;x"}) {
    const Answer answer = Get(served.Port(), path);
    // "/../index.html" is the page's own file once the library has taken the dots out.
    if (answer.status == 200) {
      EXPECT_EQ(answer.body, "<!doctype html>") << path;
    } else {
      EXPECT_TRUE(answer.status == 404 || answer.status == 403 || answer.status == 0)
          << path << ": " << answer.status;
    }
  }
  EXPECT_EQ(Get(served.Port(), "/page.js").status, 200);
}

TEST(WebServer, ForeignHostsAndOriginsAreRefused) {
  WebOptions options;
  options.allowed_hosts = {"lidar.example"};
  const ServedRing served(options);
  EXPECT_EQ(Get(served.Port(), "/metrics", "Host: evil.example\r\n").status, 403);
  EXPECT_EQ(Get(served.Port(), "/metrics", "Host: lidar.example:80\r\n").status, 200);
  EXPECT_EQ(Get(served.Port(), "/metrics", "Origin: http://evil.example\r\n").status, 403);
  EXPECT_EQ(Get(served.Port(), "/metrics", "Origin: " + std::string(3000, 'x') + "\r\n").status,
            403);
  const std::string own = "http://127.0.0.1:" + std::to_string(served.Port());
  EXPECT_EQ(Get(served.Port(), "/metrics", "Origin: " + own + "\r\n").status, 200);
}

TEST(WebServer, OtherMethodsAreRefused) {
  const ServedRing served;
  for (const char* line :
       {"POST /", "POST /metrics", "PUT /page.js", "DELETE /page.js", "OPTIONS /"}) {
    const Answer answer = Request(served.Port(), line, "Content-Length: 0\r\n");
    EXPECT_EQ(answer.status, 405) << line;
  }
}

TEST(WebServer, BrokenRequestsEndTheirConnectionAndNothingElse) {
  const ServedRing served;
  const std::vector<std::string> broken{
      "\r\n\r\n",
      "x",
      "GET",
      "GET /\r\n\r\n",
      "BREW / HTTP/1.1\r\n\r\n",
      std::string(100'000, 'A') + "\r\n\r\n",
      "GET /" + std::string(50'000, 'a') + " HTTP/1.1\r\nHost: localhost\r\n\r\n",
      "GET / HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(50'000, 'x') + "\r\n\r\n",
      "GET / HTTP/1.1\r\nHost: localhost\r\n" + std::string(20'000, '\n'),
      "GET / HTTP/1.1\r\nHost: localhost\r\nUpgrade: h2c\r\nConnection: Upgrade, HTTP2-Settings\r\n"
      "HTTP2-Settings: AAMAAABkAARAAAAAAAIAAAAA\r\n\r\n",
      "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n",
      std::string(5000, '\0'),
      "\x16\x03\x01\x02\x00\x01\x00\x01\xfc"};
  for (const std::string& bytes : broken) {
    Connection connection(served.Port());
    connection.Send(bytes);
    EXPECT_EQ(Get(served.Port(), "/page.js").status, 200) << bytes.substr(0, 20);
  }
}

TEST(WebServer, HealthFollowsTheFrames) {
  ServedRing served;
  const Answer before = Get(served.Port(), "/healthz");
  EXPECT_EQ(before.status, 503);
  EXPECT_EQ(before.body, "no complete frame yet from ring /" + served.RingName().substr(1) + "\n");
  EXPECT_EQ(Get(served.Port(), "/frame.ply").status, 503);
  // The first frame may have begun before the reader looked.
  for (int i = 0; i < 100 && Get(served.Port(), "/healthz").status != 200; ++i) {
    served.PublishFrame();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(GetUntil(served.Port(), "/healthz", 200).body, "ok\n");
  const Answer silent = GetUntil(served.Port(), "/healthz", 503);
  EXPECT_THAT(silent.body, HasSubstr("no complete frame for 2."));
}

TEST(WebServer, FilesAreThoseOfTheLatestCompleteFrame) {
  ServedRing served;
  while (Get(served.Port(), "/healthz").status != 200) served.PublishFrame(1000);
  served.PublishFrame(250, 100);  // not complete
  served.PublishFrame(250, 100);
  const Answer ply = Get(served.Port(), "/frame.ply");
  ASSERT_EQ(ply.status, 200);
  EXPECT_TRUE(ply.HasHeader("content-disposition: attachment; filename=\"frame.ply\"")) << ply.head;
  EXPECT_THAT(ply.body.substr(0, 100), HasSubstr("element vertex 62208\n"));
  const Answer json = Get(served.Port(), "/frame.json");
  EXPECT_TRUE(json.HasHeader("content-type: application/json"));
  EXPECT_THAT(json.body, HasSubstr("\"missing_blocks\":0,"));
  EXPECT_THAT(json.body, HasSubstr("[0,0,0,4.000,")) << "1000 units";
  EXPECT_EQ(Get(served.Port(), "/frame.png").body.substr(1, 3), "PNG");
  EXPECT_EQ(Get(served.Port(), "/frame.las").body.substr(0, 4), "LASF");
  EXPECT_THAT(Get(served.Port(), "/frame.pcd").body.substr(0, 200),
              HasSubstr("TYPE F F F F U U U U"));
  EXPECT_THAT(Get(served.Port(), "/frame.pcd?floats=1").body.substr(0, 200),
              HasSubstr("TYPE F F F F F F F F"));
}

TEST(WebServer, APostedFrameComesBackAsItsFile) {
  ServedRing served;
  while (Get(served.Port(), "/healthz").status != 200) served.PublishFrame(1000);
  LiveClient client(served.Port());
  client.Pull(1);
  const Message frame = client.NextFrame();
  ASSERT_TRUE(frame.IsFrame());
  const auto post = [&](std::string_view body, const std::string& length) {
    return Request(served.Port(), "POST /frame.ply", length, body);
  };
  const std::string length = "Content-Length: " + std::to_string(frame.payload.size()) + "\r\n";
  const Answer file = post(frame.payload, length);
  EXPECT_EQ(file.status, 200);
  EXPECT_EQ(file.body, Get(served.Port(), "/frame.ply").body);
  std::string broken = frame.payload;
  broken[2] = 2;
  EXPECT_EQ(post(broken, length).status, 400);
  EXPECT_EQ(post("x", "Content-Length: 1\r\n").status, 400);
  EXPECT_EQ(post("", "Content-Length: 622177\r\n").status, 413);
  EXPECT_EQ(post("", "Content-Length: 99999999999999999999\r\n").status, 411);
  EXPECT_EQ(Get(served.Port(), "/page.js").status, 200);
}

TEST(WebServer, AFloodOfSilentConnectionsIsBoundedAndLivesAreKept) {
  ServedRing served;
  while (Get(served.Port(), "/healthz").status != 200) served.PublishFrame();
  LiveClient client(served.Port());
  client.Pull();
  std::uint32_t last = client.NextFrame().Serial();
  {
    std::vector<std::unique_ptr<Connection>> flood;
    for (int i = 0; i < 400; ++i) flood.push_back(std::make_unique<Connection>(served.Port()));
    for (int i = 0; i < 5; ++i) {
      client.Pull();
      served.PublishFrame();
      const std::uint32_t serial = client.NextFrame().Serial();
      EXPECT_GT(serial, last);
      last = serial;
    }
    EXPECT_TRUE(flood.back()->IsClosedByPeer()) << "one too many is told at once";
  }
  const Answer metrics = GetUntil(served.Port(), "/metrics", 200);
  EXPECT_THAT(metrics.body, HasSubstr("kerul_lidar_web_clients 1\n"));
}

TEST(WebServer, ReadersThatDoNotReadHoldNobodyUp) {
  ServedRing served;
  while (Get(served.Port(), "/healthz").status != 200) served.PublishFrame();
  std::vector<std::unique_ptr<Connection>> slow;
  for (int i = 0; i < 20; ++i) {
    slow.push_back(std::make_unique<Connection>(served.Port()));
    slow.back()->ShrinkBuffer();
    slow.back()->Send("GET /frame.json HTTP/1.1\r\nHost: localhost\r\n\r\n");
  }
  EXPECT_EQ(Get(served.Port(), "/page.js").status, 200);
  const Answer busy = GetUntil(served.Port(), "/frame.ply", 503);
  EXPECT_EQ(busy.body, "too many files at once, try again\n");
  slow.clear();
  EXPECT_EQ(GetUntil(served.Port(), "/frame.ply", 200).status, 200);
}

TEST(WebServer, ATakenPortIsAnError) {
  const ServedRing served;
  WebOptions options;
  options.port = served.Port();
  options.source.shm_name = "kerul_no_such_ring";
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(RunWebServer(options, "", true, out, err), 1);
  EXPECT_THAT(err.str(), HasSubstr("cannot listen on 127.0.0.1 port " +
                                   std::to_string(served.Port()) + ": Address already in use\n"));
  options.bind = "not.an.address";
  EXPECT_EQ(RunWebServer(options, "", true, out, err), 1);
  EXPECT_THAT(err.str(), HasSubstr("not an address of this machine\n"));
}

}  // namespace
}  // namespace kerul::lidar::web
