// Requests for recorded events of a site, with what no host can be made to do on demand replaced at link time.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "fixture.h"

// Events of other servers and of archives can be loaded (the former are of camera 9, the latter of camera 99, which is
// not there), and calls to other servers are noted.
struct FakeServers {
  int answer = 0;
  std::string call;  // "SERVER QUERY" of the last call
};
extern FakeServers g_Servers;

// A film of eight frames, "frame 0" to "frame 7", with its progress cell and a clock that never waits.
struct FakeFilm {
  int init = 0;
  float rate = 25;
  int setResult = 0;
  std::vector<int> wanted;  // what the cell holds after one frame after the other; then -1
  std::function<void(int)> onFrame = [](int) {};
  // What came of it.
  std::string frames;  // "025"
  std::vector<int> cell;
  std::vector<std::int64_t> delays;
};
extern FakeFilm g_Film;

// The file functions of the module: what it locked, and a moment before each lock.
struct FileWatch {
  bool refuseOpen = false;
  std::vector<int> locks;
  std::function<void()> onLock = [] {};
};
extern FileWatch g_Files;

struct EventAnswer {
  std::string output;
  bool answered;  // there is an error to send
  Json::Value error;
  std::string log;  // what the request added
};

class EventTest : public SiteTest {
 protected:
  void SetUp() override;  // adds camera 6, which is being removed
  // A recorded event of a camera with a file of that content; its id.
  static int AddEvent(int camera, const std::string& content, const char* extension = ".mp4", int type = 0,
                      int task = 0);
  static int AddTask(int camera);  // an analytics task of a camera; its id
  static std::string PathOf(int event);
  static bool WasNotified(int event);
  // Serves a request; `params` begin with "&". HTTP_RANGE is set when `range` is not empty.
  static EventAnswer Ask(const std::string& method, const std::string& params, const std::string& range = "",
                         const std::string& cookies = "");
  static EventAnswer Fetch(int event, const std::string& params);  // EventMultipartFetch for anna
  static std::string PlayerFile() { return "/tmp/player_src.pid." + SessionOf("anna"); }
};
