// A site with H.264 cameras, requests in processes of their own, and the remux processes they leave behind.
#include "hls_fixture.h"

#include <fcntl.h>
#include <json/writer.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <new>

#include "velm/camera.h"
#include "velm/relay.h"
#include "velm/shmstream.h"
#include "videoStreaming.h"

namespace fs = std::filesystem;

namespace {

constexpr int kCameras = 3;

World* MakeWorld() {
  return new (mmap(nullptr, sizeof(World), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) World();
}

void AddH264Cameras() {
  auto database = oculora::Database::Open(oculora::Database::Mode::kReadWrite, nullptr);
  for (int i = 0; i < kCameras; ++i) {
    oculora::CameraRecord camera;
    camera.id = 20 + i;
    camera.name = "H.264 " + std::to_string(i);
    camera.videoType = VIDEO_TYPE_H264;
    camera.source = "test:";
    camera.profiles = {{0, 0, 1, 320, 240}, {oculora::kMobileProfile, i == 2 ? 1 : 0, i == 1 ? 0 : 1, 320, 240}};
    database->AddCamera(camera);
  }
}

// Kills what was left to this process and still runs; whether anything did.
bool EndOrphans() {
  bool any = false;
  for (pid_t child; (child = waitpid(-1, nullptr, WNOHANG)) >= 0;) {
    if (child > 0) continue;
    any = true;
    kill(std::atoi(ReadFile("/proc/self/task/" + std::to_string(getpid()) + "/children").c_str()), SIGKILL);
    usleep(1000);
  }
  return any;
}

int Relay(int server, const std::string& text) {
  WriteFile(kRelayed, ReadFile(kRelayed) + std::to_string(server) + " " + text);
  return g_World.relayResult;
}

const pid_t g_TestPid = getpid();

}  // namespace

World& g_World = *MakeWorld();
std::map<std::string, std::string> HlsTest::env;

#define REPLACES extern "C" __attribute__((visibility("default")))

extern "C" time_t __real_time(time_t* result);
extern "C" int __real_usleep(useconds_t us);
extern "C" pid_t __real_fork();

REPLACES time_t __wrap_time(time_t*) { return g_World.now != 0 ? g_World.now.load() : __real_time(nullptr); }
REPLACES int __wrap_usleep(useconds_t us) { return __real_usleep(us / static_cast<useconds_t>(g_World.haste)); }
REPLACES unsigned __wrap_sleep(unsigned seconds) {
  g_World.slept += static_cast<int>(seconds);
  return 0;
}
REPLACES pid_t __wrap_fork() {
  const bool ofRequest = getpid() != g_TestPid;
  const int number = ofRequest ? g_World.atFork.exchange(0) : 0;
  const pid_t child = __real_fork();
  if (child == 0 && number > 0) raise(number);                             // before it does anything
  if (child > 0 && number == SIGSTOP) waitpid(child, nullptr, WUNTRACED);  // whoever learns of it finds it stopped
  if (child > 0 && ofRequest) g_World.forked = child;
  return child;
}

int SendWebAPIToRec(int server, const std::string& query) { return Relay(server, query); }
int SendWebAPIToRecAndWriteAsHeader(int server, const std::string& query, const std::string& header) {
  return Relay(server, query + "|" + header);
}

void HlsTest::SetUp() {
  const bool first = !fs::exists(oculora::kRecordsPath);
  SiteTest::SetUp();
  if (first) AddH264Cameras();
  prctl(PR_SET_CHILD_SUBREAPER, 1);  // remux processes come to the test when their requests have ended
  fs::remove_all("/tmp/segmenter");
  fs::create_directories("/tmp/segmenter");
  SetMode("read");
  g_World.now = 0;
  g_World.haste = 1;
  g_World.slept = g_World.atFork = g_World.forked = g_World.relayResult = 0;
  env = {{"REMOTE_ADDR", "192.0.2.1"}, {"HTTP_HOST", "nvr:80"}};
  for (int i = 0; i < kCameras; ++i) rings[i] = oculora::RingWriter::Create({20 + i, 0}, std::size_t{32} << 20, true);
}

void HlsTest::TearDown() {
  EXPECT_FALSE(EndOrphans()) << ReadFile(oculora::kLogPath);
  for (int cam = kCam; cam < kCam + kCameras; ++cam) {
    oculora::RemoveRing({cam, 0});
    EXPECT_EQ(fs::remove_all(PidPath(cam)) + fs::remove_all(Dir(cam)), 0U) << cam;
  }
}

void HlsTest::Touch(time_t when, int cam) {
  const timespec times[] = {{when, 0}, {when, 0}};
  EXPECT_EQ(utimensat(AT_FDCWD, PidPath(cam).c_str(), times, 0), 0);
}

Child HlsTest::Start(const std::string& method, const std::string& params) {
  if (method == "Open") fs::remove(kCalls), fs::remove(kBytes);
  return Child([&] {
    const int answer = open("/tmp/answer", O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    dup2(answer, STDOUT_FILENO);
    if (close_range(3, ~0U, 0) != 0 || chdir("/tmp/ndcam") != 0) _exit(1);  // as the dispatcher serves requests
    oculora::RawRequest raw;
    raw.query =
        "api=VELM.Oculora.Stream.VideoStreaming&version=1&method=" + method + Sid("root") + "&cameraId=" + params;
    raw.env = env;
    const auto request = oculora::MakeRequest(std::move(raw));
    VELM::APIResponse response;
    printf(">");
    VideoStreamingHandler(request.get(), &response).HandleProcess();
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    if (response.IsOutputEnabled()) printf("%s", Json::writeString(compact, response.GetEnvelope()).c_str());
  });
}

std::string HlsTest::Ask(const std::string& method, const std::string& params) {
  EXPECT_EQ(Start(method, params).Wait(30000), 0) << method << params;
  return ReadFile("/tmp/answer");
}

bool HlsTest::Until(const std::function<bool()>& condition) {
  for (int i = 0; i < 20000; ++i) {
    if (condition()) return true;
    __real_usleep(1000);
  }
  return false;
}

pid_t HlsTest::RemuxPid(pid_t other, int cam) {
  pid_t pid = 0;
  EXPECT_TRUE(Until([&] { return (pid = std::atoi(ReadFile(PidPath(cam)).c_str())) > 1 && pid != other; }));
  return pid;
}

bool HlsTest::Ends(pid_t pid) {
  int status = 0;
  return Until([&] { return waitpid(pid, &status, WNOHANG) == pid || kill(pid, 0) != 0; }) && status == 0;
}

bool HlsTest::Runs(pid_t pid) {
  __real_usleep(150000);
  return kill(pid, 0) == 0 && waitpid(pid, nullptr, WNOHANG) != pid;
}

void HlsTest::Write(const std::string& frame, bool key, int cam) {
  ASSERT_GT(rings[cam - kCam].Write(frame.data(), frame.size(), key ? FRAME_FLAG_KEY : 0, 1, VIDEO_TYPE_H264), 0);
}

Child HlsTest::Camera(useconds_t periodUs) {
  return Child([&] {
    for (const std::string frame(20000, 'k');; usleep(periodUs)) Write(frame, true);
  });
}
