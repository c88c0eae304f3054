// Requests for recorded events, and the replaced functions behind them.
#include "event_fixture.h"

#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>

#include "capture.h"
#include "records/events.h"
#include "records/storages.h"
#include "records/tasks.h"
#include "streaming.h"
#include "velm/event.h"
#include "velm/media.h"
#include "velm/timing.h"

FakeServers g_Servers;
FakeFilm g_Film;
FileWatch g_Files;

namespace {

constexpr char kStorage[] = "/var/packages/Oculora/var";
constexpr int kArchive = 2;
constexpr int kLastFrame = 7;

class ElsewhereEvent : public Event {
 public:
  int Load(int id, int dbArg, int dbType, int ndId) override {
    if (ndId == 0 && dbType != kArchive) return Event::Load(id, dbArg, dbType, ndId);
    m_Id = id;
    m_CamId = ndId > 0 ? 9 : 99;
    return 0;
  }
};

int NoteCall(int server, const std::string& query) {
  g_Servers.call = std::to_string(server) + " " + query;
  return g_Servers.answer;
}

oculora::Database Records() {
  return std::move(*oculora::Database::Open(oculora::Database::Mode::kReadWrite, nullptr));
}

}  // namespace

// Replaced: the program's own definitions come before the host library's.
Event* RecFactory::NewByType(REC_EVENT_TYPE type) {
  if (type == REC_EVENT_TYPE_RECORDING) return new ElsewhereEvent;
  return type == REC_EVENT_TYPE_ALERT ? new AlertEvent : nullptr;
}
int RedirectWebAPIEvent(int ndId, const std::string& query) { return NoteCall(ndId, query); }
int RedirectMFStream(int ndId, const std::string& query) { return NoteCall(ndId, query); }

struct JpegExtractor::Impl {};
JpegExtractor::JpegExtractor() = default;
JpegExtractor::~JpegExtractor() = default;
int JpegExtractor::Init(const std::string&) { return g_Film.init; }
int JpegExtractor::GetFrameInfo(__tag_JPEG_FRAME_INFO& info) {
  info = {g_Film.rate, kLastFrame + 1};
  return 0;
}
int JpegExtractor::ReadFrame(unsigned index, unsigned char* buffer, unsigned& size) {
  if (index > kLastFrame) return -1;
  const std::string frame = "frame " + std::to_string(index);
  size = static_cast<unsigned>(frame.size());
  memcpy(buffer, frame.data(), size);
  g_Film.frames += frame.back();
  g_Film.onFrame(static_cast<int>(index));
  return 0;
}

struct ProgressIndicator::Impl {};
ProgressIndicator::ProgressIndicator(long long, bool, bool) {}
ProgressIndicator::~ProgressIndicator() = default;
int ProgressIndicator::Set(int value) {
  g_Film.cell.push_back(value);
  return g_Film.setResult;
}
int ProgressIndicator::Get() {
  if (g_Film.wanted.empty()) return -1;
  const int wanted = g_Film.wanted.front();
  g_Film.wanted.erase(g_Film.wanted.begin());
  return wanted;
}

void DelayTimer::BeginTiming() {}
void DelayTimer::Delay() { g_Film.delays.push_back(m_PeriodUs); }

// Exported, because the linker replaces what a library calls as well.
#define REPLACES extern "C" __attribute__((visibility("default")))

extern "C" FILE* __real_fopen64(const char* path, const char* mode);
REPLACES FILE* __wrap_fopen64(const char* path, const char* mode) {
  return g_Files.refuseOpen ? nullptr : __real_fopen64(path, mode);
}
extern "C" int __real_flock(int fd, int operation);
REPLACES int __wrap_flock(int fd, int operation) {
  g_Files.onLock();
  g_Files.locks.push_back(operation);
  return __real_flock(fd, operation);
}

void EventTest::SetUp() {
  const bool isNew = !std::filesystem::exists(oculora::kRecordsPath);
  SiteTest::SetUp();
  if (isNew) {
    oculora::CameraRecord camera{.id = 6, .name = "Being removed", .videoType = VIDEO_TYPE_MJPEG, .source = "test:"};
    camera.deleting = true;
    ASSERT_TRUE(Records().AddCamera(camera));
  }
  g_Servers = {};
  g_Film = {};
  g_Files = {};
  std::filesystem::remove_all(PlayerFile());
}

int EventTest::AddEvent(int camera, const std::string& content, const char* extension, int type, int task) {
  oculora::Database records = Records();
  oculora::EventRecord event;
  event.camId = camera;
  event.type = type;
  event.task = task;
  event.deviceType = task != 0 ? oculora::kAnalyticsDevice : 0;
  event.startUs = 1792600930000000;
  const int id = oculora::EventTable(records).Add(event, extension).value_or(0);
  std::filesystem::create_directories(std::filesystem::path(PathOf(id)).parent_path());
  WriteFile(PathOf(id), content);
  return id;
}

int EventTest::AddTask(int camera) {
  static int number = 0;
  oculora::Database records = Records();
  return oculora::TaskTable(records).Add({.camId = camera, .name = "Task " + std::to_string(++number)}).value_or(0);
}

std::string EventTest::PathOf(int event) {
  oculora::Database records = Records();
  return oculora::RecordingsDirIn(kStorage) + "/" + oculora::EventTable(records).Load(event)->path;
}

bool EventTest::WasNotified(int event) {
  oculora::Database records = Records();
  return oculora::EventTable(records).Load(event)->played != 0;
}

EventAnswer EventTest::Ask(const std::string& method, const std::string& params, const std::string& range,
                           const std::string& cookies) {
  std::map<std::string, std::string> env = {{"REMOTE_ADDR", "192.0.2.1"}};
  if (!range.empty()) env["HTTP_RANGE"] = range;
  const std::string query = "api=VELM.Oculora.Stream&version=1&method=" + method + params;
  const auto request = oculora::MakeRequest({query, "", cookies, env});
  const std::size_t logged = ReadFile(oculora::kLogPath).size();
  gSessionId.clear();
  gStopPlay = 0;
  gPidFileSignalled = 0;
  VELM::APIResponse response;
  EventAnswer answer;
  answer.output = CaptureOutput([&] { StreamingHandler(request.get(), &response).HandleEventStream(); });
  for (const int number : {SIGTERM, SIGUSR1}) signal(number, SIG_DFL);
  answer.answered = response.IsOutputEnabled();
  answer.error = response.GetEnvelope()["error"];
  answer.log = ReadFile(oculora::kLogPath).substr(logged);
  return answer;
}

EventAnswer EventTest::Fetch(int event, const std::string& params) {
  const std::string id = "&eventId=" + std::to_string(event);
  return Ask("EventMultipartFetch", Sid("anna") + id + "&timestamp=1" + params);
}
