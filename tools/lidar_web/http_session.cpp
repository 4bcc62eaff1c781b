#include "lidar_web/http_session.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "lidar_web/live_session.h"
#include "lidar_web/request.h"
#include "lidar_web/story_maker.h"

namespace kerul::lidar::web {
namespace {

constexpr const char* kPlainText = "text/plain; charset=utf-8";
constexpr const char* kMetricsType = "text/plain; version=0.0.4; charset=utf-8";
constexpr std::size_t kPieceBytes = 64 * 1024;
constexpr std::size_t kLongestUri = 1024;
constexpr std::size_t kLongestHost = 256;
// All that may stand before a story, and the story itself.
constexpr int kStoryWaitSeconds = static_cast<int>(kMostStoryJobs) * (kLongestStorySeconds + 2);

constexpr const char* kPagePolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
    "img-src 'self' data: blob:; frame-src 'self'; base-uri 'none'; form-action 'none'; "
    "frame-ancestors 'none'";
// A story has its style in itself, and nothing that runs or loads.
constexpr const char* kStoryPolicy =
    "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'; "
    "frame-ancestors 'self'; sandbox";

// One request and what becomes of it.
struct Request {
  Method method = Method::kOther;
  Target target;
  std::string path;
  std::optional<std::size_t> body_bytes;  // as announced
  std::shared_ptr<FileJob> job;           // while a file is made

  // The answer.
  int status = 0;  // 0: not known yet
  std::string type = kPlainText;
  Bytes bytes;
  bool packed = false;
  bool close_after = false;  // the rest of the request is not read
  std::size_t sent = 0;
  bool headers_sent = false;

  void Answer(int code, std::string text, const char* content_type = kPlainText) {
    status = code;
    type = content_type;
    bytes = std::make_shared<const std::string>(std::move(text));
  }
  std::span<const char> Body() const {
    if (bytes) return *bytes;
    return job ? std::span<const char>(job->file) : std::span<const char>();
  }
};

ServerState& StateOf(lws* wsi) {
  return *static_cast<ServerState*>(lws_context_user(lws_get_context(wsi)));
}

// Empty for a header that is not there or too long.
std::string Header(lws* wsi, lws_token_indexes token, std::size_t longest) {
  const int length = lws_hdr_total_length(wsi, token);
  if (length <= 0 || static_cast<std::size_t>(length) > longest) return {};
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  if (lws_hdr_copy(wsi, text.data(), static_cast<int>(text.size()), token) < 0) return {};
  text.resize(static_cast<std::size_t>(length));
  return text;
}

// Joined by '&', as they came.
std::string Query(lws* wsi) {
  std::string query;
  std::array<char, kLongestHost> part;
  for (int i = 0;; ++i) {
    const int length = lws_hdr_copy_fragment(wsi, part.data(), static_cast<int>(part.size()),
                                             WSI_TOKEN_HTTP_URI_ARGS, i);
    if (length < 0) return query;
    query.append(i == 0 ? "" : "&").append(part.data(), static_cast<std::size_t>(length));
  }
}

Method MethodOf(lws* wsi) {
  char* uri = nullptr;
  int length = 0;
  switch (lws_http_get_uri_and_method(wsi, &uri, &length)) {
    case LWSHUMETH_GET:
      return Method::kGet;
    case LWSHUMETH_HEAD:
      return Method::kHead;
    case LWSHUMETH_POST:
      return Method::kPost;
    default:
      return Method::kOther;
  }
}

std::optional<std::size_t> AnnouncedBytes(lws* wsi) {
  const std::string text = Header(wsi, WSI_TOKEN_HTTP_CONTENT_LENGTH, 20);
  std::size_t bytes = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bytes);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return bytes;
}

// Nothing, or why the request gets no further.
std::optional<std::pair<int, const char*>> Refusal(lws* wsi, const ServerState& state) {
  const std::string host = Header(wsi, WSI_TOKEN_HOST, kLongestHost);
  if (!IsOwnHost(host, state.host_names)) {
    return std::pair{403, "this Host is not known here: name it with --allow-host\n"};
  }
  // One that is too long to look at is foreign too.
  const bool has_origin = lws_hdr_total_length(wsi, WSI_TOKEN_ORIGIN) > 0;
  const std::string origin = Header(wsi, WSI_TOKEN_ORIGIN, kLongestHost);
  if (has_origin && (origin.empty() || !IsOwnOrigin(origin, host))) {
    return std::pair{403, "foreign Origin\n"};
  }
  return std::nullopt;
}

void AddJob(ServerState& state, Request& request) {
  const bool is_story = request.target.wanted == Wanted::kStory;
  FileMaker& maker = is_story ? *state.stories : *state.files;
  if (maker.Add(request.job)) return;
  request.job.reset();
  request.Answer(
      503, std::string("too many ") + (is_story ? "stories" : "files") + " at once, try again\n");
}

// A job whose frame message still comes.
void AwaitBody(Request& request) {
  if (!request.body_bytes) {
    request.Answer(411, "a frame message needs its Content-Length\n");
  } else if (*request.body_bytes > kLargestFrameBytes) {
    request.Answer(413, "longer than a frame message\n");
  } else {
    request.job->body.reserve(*request.body_bytes);
  }
}

void ServeStory(ServerState& state, Request& request) {
  if (!state.stories) return request.Answer(404, "no stories: --story in lidar_web(1)\n");
  if (request.method != Method::kPost) return request.Answer(405, "POST of a frame message\n");
  request.job = std::make_shared<FileJob>();
  request.job->row = request.target.row;
  request.job->col = request.target.col;
  AwaitBody(request);
}

void ServeToldStory(const ServerState& state, Request& request) {
  const Bytes page = state.told_stories.Find(request.target.file);
  if (!page) return request.Answer(404, "this story is not kept any more\n");
  request.status = 200;
  request.type = "text/html; charset=utf-8";
  request.bytes = page;
}

void ServeFrame(ServerState& state, Request& request) {
  request.job = std::make_shared<FileJob>();
  request.job->format = request.target.format;
  request.job->floats = request.target.floats;
  if (request.method == Method::kPost) return AwaitBody(request);
  request.job->frame = state.reader->Newest().complete;
  if (!request.job->frame) {
    request.job.reset();
    return request.Answer(503, "no complete frame yet\n");
  }
  request.job->header = request.job->frame->header;
  AddJob(state, request);
}

void ServePage(const ServerState& state, lws* wsi, Request& request) {
  if (state.page.IsEmpty()) {
    return request.Answer(503,
                          "the page was not built or not found: see --page in lidar_web(1); "
                          "/metrics, /healthz and /frame.png are there\n");
  }
  const PageFiles::File* file = state.page.Find(request.target.file);
  if (file == nullptr) return request.Answer(404, "no such page\n");
  const std::string encodings = Header(wsi, WSI_TOKEN_HTTP_ACCEPT_ENCODING, kLongestHost);
  request.packed = file->packed && encodings.find("gzip") != std::string::npos;
  request.status = 200;
  request.type = ContentType(request.target.file);
  request.bytes = request.packed ? file->packed : file->plain;
}

void Serve(ServerState& state, lws* wsi, Request& request) {
  if (const auto refusal = Refusal(wsi, state)) {
    ++state.figures_of_host.refused;
    return request.Answer(refusal->first, refusal->second);
  }
  const bool reads = request.method == Method::kGet || request.method == Method::kHead;
  const bool posts = request.method == Method::kPost && (request.target.wanted == Wanted::kFrame ||
                                                         request.target.wanted == Wanted::kStory);
  if (!reads && !posts) {
    ++state.figures_of_host.refused;
    return request.Answer(405, "only GET, and POST of a frame message\n");
  }
  switch (request.target.wanted) {
    case Wanted::kPage:
      return ServePage(state, wsi, request);
    case Wanted::kFrame:
      return ServeFrame(state, request);
    case Wanted::kStory:
      return ServeStory(state, request);
    case Wanted::kToldStory:
      return ServeToldStory(state, request);
    case Wanted::kMetrics:
      return request.Answer(200, state.Metrics(), kMetricsType);
    case Wanted::kHealth: {
      Health health = CheckHealth(state.reader->Figures(), std::chrono::steady_clock::now());
      return request.Answer(health.ok ? 200 : 503, std::move(health.line));
    }
    case Wanted::kStream:
      return request.Answer(400, "this is a WebSocket\n");
    case Wanted::kNothing:
      return request.Answer(404, "no such path\n");
  }
}

class HeaderWriter {
 public:
  HeaderWriter(lws* wsi, const Request& request) : wsi_(wsi) {
    const lws_filepos_t length = request.Body().size();
    ok_ = lws_add_http_common_headers(wsi, static_cast<unsigned>(request.status),
                                      request.type.c_str(), length, &at_, End()) == 0;
  }
  void Add(const char* name, const std::string& value) {
    ok_ = ok_ && lws_add_http_header_by_name(wsi_, reinterpret_cast<const unsigned char*>(name),
                                             reinterpret_cast<const unsigned char*>(value.data()),
                                             static_cast<int>(value.size()), &at_, End()) == 0;
  }
  bool Send() { return ok_ && lws_finalize_write_http_header(wsi_, Begin(), &at_, End()) == 0; }

 private:
  unsigned char* Begin() { return room_.data() + LWS_PRE; }
  unsigned char* End() { return room_.data() + room_.size() - 1; }

  lws* wsi_;
  std::array<unsigned char, LWS_PRE + 2048> room_{};
  unsigned char* at_ = room_.data() + LWS_PRE;
  bool ok_ = false;
};

bool SendHeaders(lws* wsi, const Request& request) {
  HeaderWriter headers(wsi, request);
  headers.Add("x-content-type-options:", "nosniff");
  headers.Add("referrer-policy:", "no-referrer");
  headers.Add("cross-origin-resource-policy:", "same-origin");
  headers.Add("cache-control:", "no-cache");
  if (request.type.starts_with("text/html")) {
    const bool is_story = request.target.wanted == Wanted::kToldStory;
    headers.Add("content-security-policy:", is_story ? kStoryPolicy : kPagePolicy);
  }
  if (request.packed) headers.Add("content-encoding:", "gzip");
  if (request.target.wanted == Wanted::kFrame && request.status == 200) {
    headers.Add("content-disposition:", std::string("attachment; filename=\"frame") +
                                            FormatEnding(request.target.format) + "\"");
  }
  if (request.status == 405) headers.Add("allow:", "GET, HEAD, POST");
  return headers.Send();
}

// Ends the request: 0 for another one on this connection, or -1 for its end.
int Finish(lws* wsi, const Request& request) {
  if (request.close_after) return -1;
  return lws_http_transaction_completed(wsi) != 0 ? -1 : 0;
}

int SendPiece(lws* wsi, Request& request) {
  std::array<unsigned char, LWS_PRE + kPieceBytes> room;
  const std::span<const char> rest = request.Body().subspan(request.sent);
  const std::size_t size = std::min(rest.size(), kPieceBytes);
  std::copy_n(rest.begin(), size, room.begin() + LWS_PRE);
  const bool last = size == rest.size();
  const int written =
      lws_write(wsi, room.data() + LWS_PRE, size, last ? LWS_WRITE_HTTP_FINAL : LWS_WRITE_HTTP);
  if (written < static_cast<int>(size)) return -1;
  request.sent += size;
  if (last) return Finish(wsi, request);
  lws_set_timeout(wsi, PENDING_TIMEOUT_HTTP_CONTENT, kStalledReaderSeconds);
  lws_callback_on_writable(wsi);
  return 0;
}

// What the file's maker has done becomes the answer.
void TakeFile(ServerState& state, lws* wsi, Request& request) {
  if (!request.job->done) return;
  state.waiting_for_files.erase(wsi);
  if (!request.job->error.empty()) {
    return request.Answer(request.job->status, request.job->error + "\n");
  }
  if (request.target.wanted == Wanted::kStory) {
    return request.Answer(200,
                          "/story/" + state.told_stories.Add(std::move(request.job->file)) + "\n");
  }
  static constexpr const char* kTypes[] = {"image/png", "application/octet-stream",
                                           "application/octet-stream", "application/octet-stream",
                                           "application/json"};
  request.status = 200;
  request.type = kTypes[static_cast<std::size_t>(request.target.format)];
}

int Continue(ServerState& state, lws* wsi, Request& request) {
  if (request.status == 0) {
    if (request.job) TakeFile(state, wsi, request);
    if (request.status == 0) return 0;  // still being made, or its message still comes
  }
  if (request.headers_sent) return SendPiece(wsi, request);
  if (!SendHeaders(wsi, request)) return -1;
  request.headers_sent = true;
  if (request.method == Method::kHead || request.Body().empty()) return Finish(wsi, request);
  lws_set_timeout(wsi, PENDING_TIMEOUT_HTTP_CONTENT, kStalledReaderSeconds);
  lws_callback_on_writable(wsi);
  return 0;
}

// Waits for the file or goes on to the answer.
int WaitOrContinue(ServerState& state, lws* wsi, const Request& request) {
  if (request.status == 0) {
    state.waiting_for_files.insert(wsi);
    const bool is_story = request.target.wanted == Wanted::kStory;
    lws_set_timeout(wsi, PENDING_TIMEOUT_HTTP_CONTENT,
                    is_story ? kStoryWaitSeconds : kStalledReaderSeconds);
  }
  lws_callback_on_writable(wsi);
  return 0;
}

int Begin(ServerState& state, lws* wsi, Request*& request, std::string_view path) {
  delete request;
  request = new Request;
  request->method = MethodOf(wsi);
  if (path.size() > kLongestUri) {
    request->Answer(414, "too long\n");
  } else {
    request->path = path;
    request->target = ParseTarget(request->path, Query(wsi));
    request->body_bytes = AnnouncedBytes(wsi);
    Serve(state, wsi, *request);
  }
  const bool wants_body = request->method == Method::kPost && request->status == 0;
  request->close_after = !wants_body && request->body_bytes.value_or(0) > 0;
  if (wants_body) return 0;
  return WaitOrContinue(state, wsi, *request);
}

int TakeBody(Request* request, std::string_view piece) {
  if (request == nullptr || !request->job || request->status != 0) return 0;
  std::vector<char>& body = request->job->body;
  if (body.size() + piece.size() > kLargestFrameBytes) return -1;
  body.insert(body.end(), piece.begin(), piece.end());
  return 0;
}

int EndBody(ServerState& state, lws* wsi, Request* request) {
  if (request == nullptr || !request->job || request->status != 0) return 0;
  const std::optional<FrameHeader> header = ReadFrameHeader(request->job->body);
  if (header) {
    request->job->header = *header;
    AddJob(state, *request);
  } else {
    request->job.reset();
    request->Answer(400, "no frame message\n");
  }
  return WaitOrContinue(state, wsi, *request);
}

// 0 lets the connection become a WebSocket; what is refused gets its answer here.
int ConfirmUpgrade(ServerState& state, lws* wsi) {
  Request request;
  const std::string path = Header(wsi, WSI_TOKEN_GET_URI, kLongestUri);
  if (const auto refusal = Refusal(wsi, state)) {
    request.Answer(refusal->first, refusal->second);
  } else if (ParseTarget(path, "").wanted != Wanted::kStream ||
             Header(wsi, WSI_TOKEN_UPGRADE, kLongestHost) != "websocket") {
    request.Answer(404, "the WebSocket is /stream\n");
  } else if (!HasWord(Header(wsi, WSI_TOKEN_PROTOCOL, kLongestHost), kLiveProtocol)) {
    request.Answer(400, std::string("the subprotocol is ") + kLiveProtocol + "\n");
  } else if (state.figures_of_host.clients >= kMostLiveClients) {
    request.Answer(503, "too many clients\n");
  } else {
    return 0;
  }
  ++state.figures_of_host.refused;
  const std::span<const char> body = request.Body();
  if (!SendHeaders(wsi, request)) return -1;
  std::vector<unsigned char> room(LWS_PRE + body.size());
  std::copy(body.begin(), body.end(), room.begin() + LWS_PRE);
  lws_write(wsi, room.data() + LWS_PRE, body.size(), LWS_WRITE_HTTP_FINAL);
  return 1;
}

void Forget(ServerState& state, lws* wsi, Request*& request) {
  state.waiting_for_files.erase(wsi);
  delete request;
  request = nullptr;
}

}  // namespace

int HttpCallback(lws* wsi, lws_callback_reasons reason, void* session, void* in, std::size_t size) {
  auto* request = static_cast<Request**>(session);
  const std::string_view text(static_cast<const char*>(in), in == nullptr ? 0 : size);
  switch (reason) {
    case LWS_CALLBACK_FILTER_NETWORK_CONNECTION:
      if (StateOf(wsi).connections <= kMostConnections) return 0;
      ++StateOf(wsi).figures_of_host.refused;
      return -1;
    case LWS_CALLBACK_WSI_CREATE:
      ++StateOf(wsi).connections;
      return 0;
    case LWS_CALLBACK_WSI_DESTROY:
      --StateOf(wsi).connections;
      return 0;
    case LWS_CALLBACK_HTTP_CONFIRM_UPGRADE:
      return ConfirmUpgrade(StateOf(wsi), wsi);
    case LWS_CALLBACK_HTTP:
      return Begin(StateOf(wsi), wsi, *request, text);
    case LWS_CALLBACK_HTTP_BODY:
      return TakeBody(*request, text);
    case LWS_CALLBACK_HTTP_BODY_COMPLETION:
      return EndBody(StateOf(wsi), wsi, *request);
    case LWS_CALLBACK_HTTP_WRITEABLE:
      return *request == nullptr ? 0 : Continue(StateOf(wsi), wsi, **request);
    case LWS_CALLBACK_HTTP_DROP_PROTOCOL:
    case LWS_CALLBACK_CLOSED_HTTP:
      if (request != nullptr) Forget(StateOf(wsi), wsi, *request);
      return 0;
    // Certificates, proxies and the rest of what the library's own handling of HTTP does.
    default:
      return 0;
  }
}

}  // namespace kerul::lidar::web
