// The live-video API: one handler serves one request, which for "Stream" may last for hours.
//
// Where its operations live:
//   video/dispatch.cpp         construction, loading the camera, admission, method and format dispatch
//   video/stream_key.cpp       AuthByStmKey
//   video/live_view.cpp        OutputMjpegStream, OutputMxpegStream: what views share
//   video/view_file.cpp        CheckTimeStamp: the hand-over between views of one session
//   video/live_mjpeg.cpp       LiveviewMjpgCam
//   video/live_mxpeg.cpp       LiveviewMxpegCam
//   video/live_decoded.cpp     LiveviewMpeg4CamByMjpg, CopyJpegFromMpeg4
//   video/query.cpp            HandleQuery
//   video/open.cpp             HandleOpen
//   video/close.cpp            HandleClose
//   video/remux_count.cpp      IncFfmpegRefCnt, DecFfmpegRefCnt: who streams a camera as HLS
//   video/remux.cpp            SetupFfmpegRemux, RunFfmpegRemux, StopFfmpegRemux: the remux process and its files
//   video/feeder.cpp           OutputH264Data, InitFfmpegH264: its body, from the ring into the pipe
//   video/segmenter_thread.cpp FFmpegH264Remux, FFmpegThreadStop: its second thread, from the pipe into slices
//   video/hls_output.cpp       OutputM3u8, OutputHls, GetFileContent
//   video/forwarding.cpp       ForwardStream: live pictures of cameras that another recording server owns
//   video/http_prefix.cpp      GetCorrectHttpPrefix
//   video/process_control.cpp  SetupSignalHandler
#pragma once

#include <pthread.h>

#include <climits>
#include <cstdint>
#include <ctime>
#include <string>

#include "ffmpegWrap.h"
#include "qmwebapihandler.h"
#include "velm/camera.h"
#include "velm/shmstream.h"

// Set by SIGTERM and SIGINT; every streaming loop ends when it is.
extern volatile int g_StopFlag;

class AttachedRing;
class DelayTimer;
class MultipartResponse;
class SoundTrack;
class VideoStreamingHandler;

using VideoStreamingBase =
    QmWebAPIHandler<VideoStreamingHandler,
                    int (VideoStreamingHandler::*)(CmsRelayParams&, CmsRelayTarget&, Json::Value&),
                    int (VideoStreamingHandler::*)(CmsRelayParams&),
                    int (VideoStreamingHandler::*)(CmsRelayParams&, CmsRelayTarget&, bool)>;

class VideoStreamingHandler : public VideoStreamingBase {
 public:
  VideoStreamingHandler(VELM::APIRequest* request, VELM::APIResponse* response);
  ~VideoStreamingHandler() override;

  // Serves the whole request. The camera is loaded before the caller is admitted, so an unknown camera answers 401 to
  // anyone.
  void HandleProcess();

  // Installs the handler of SIGTERM and SIGINT that sets g_StopFlag. 0 or -1.
  int SetupSignalHandler();

  // Admits this process to the views of session `sid`: views with the same time stamp run together, a new time stamp
  // kills the older ones. 0 when this process may stream, -1 otherwise. May wait for the lock of a neighbour.
  int CheckTimeStamp(const char* sid, long timestamp);

 private:
  int LoadBasicDataMember(Camera& camera);  // 0 or -1
  bool AuthByStmKey();

  void HandleStream(Camera& camera, bool byStmKey);
  void HandleOpen(Camera& camera);
  void HandleClose(Camera& camera);
  void HandleQuery(Camera& camera);

  // The rule every method judges the camera by, for the user of this request.
  CamStatusRule MakeStatusRule(bool checkPrivilege);

  void OutputMjpegStream();
  void OutputMxpegStream();
  // HLS, local or passed on from the owner.
  void OutputM3u8();
  void OutputHls(const std::string& sliceId);
  void WritePlaylist(const std::string& hostPrefix);
  bool WriteSlice(const std::string& sliceId);
  void RelayHls(const Json::Value& info, const char* header, const char* func);
  // Reads up to `size` bytes of a file from `offset` on. The offset to go on from, 0 at the file's end, -1 on failure
  // (then `bytesRead` is -1). Waits up to five seconds for a file that is not there yet.
  int GetFileContent(char* buffer, int size, int offset, int& bytesRead, const std::string& path);
  // How the client reached this host. 0, or -1 when nothing tells the host.
  int GetCorrectHttpPrefix(bool& useHttps, std::string& host);
  bool IsEnvSet(const char* name) const;

  bool BeginLocalView(const char* func);  // signal handler and time stamp; false when this process must not stream
  // Looks at the camera's connection, after `passesBetweenChecks` passes without a look. False when it is lost.
  bool MayGoOn(const char* func, int& passes, int passesBetweenChecks);
  void LiveviewMjpgCam();
  void LiveviewMxpegCam();
  void PlayMxpeg(MultipartResponse& response, AttachedRing& video, SoundTrack& sound, time_t lastWrite);
  bool IsSilentFor(time_t lastWrite) const;
  void LiveviewMpeg4CamByMjpg();
  // Decodes a key frame of this camera and compresses it to g_Picture. Its size there, or -1. Allocates and releases a
  // decoder: some milliseconds.
  int CopyJpegFromMpeg4(const unsigned char* frame, int frameSize, const unsigned char* extra, int extraSize);
  void ForwardStream(const char* format);  // of a camera that another recording server owns

  bool OpenHere(const std::string& format, bool relayed);  // false: the error code is set
  bool OpenOnOwner(const std::string& format);
  bool CloseHere();
  bool CloseOnOwner();

  // The reference count after a user was added or removed; -1 when its files cannot be had.
  int IncFfmpegRefCnt();
  int DecFfmpegRefCnt();
  void StopStaleRemux();

  // Attaches the ring and fixes the URLs of slices. 0, or -1 with the response's error set.
  int SetupFfmpegRemux(bool relayed);
  // Forks the remux and waits, at most 20 s, for its first playlist. 0, or -1 when there is no process.
  int RunFfmpegRemux();
  // Drops one user; the last one, or `force`, ends the remux and removes its files. Does not wait for the process.
  void StopFfmpegRemux(bool force);

  // In the remux process.
  [[noreturn]] void BecomeRemux(int dir);  // the remux directory
  void OutputH264Data();
  int InitFfmpegH264(int& pipeFd, int& cursor);  // 0; 1: stopped, no thread, or not read; 2: no pipe
  int WaitForKeyFrame(int& cursor);
  void FeedPipe(int pipeFd, int cursor);
  void Rest(DelayTimer& idle) const;
  bool WriteFrame(int pipeFd, int size, time_t lastData);
  bool IsSilent(time_t now, time_t lastData) const;
  bool IsRemuxWanted() const;
  void Unlist();
  void EndRemux(int pipeFd);
  bool IsRemuxDirOwn() const;  // whether the directory under its name is the one this process works in
  bool OwnsRemux() const;      // whether pid file and directory are this process's to remove
  // The name of a file of the remux as the remux process opens it, from its working directory.
  const char* InRemuxDir(const std::string& path) const { return path.c_str() + m_HlsDir.size() + 1; }

  static void* FFmpegH264Remux(void* handler);
  void RunSegmenter();
  void FFmpegThreadStop();

  std::int32_t m_CamId = 0;
  std::int32_t m_StreamNo = 0;  // of the mobile profile
  LiveStreamUpdater m_StmUpdater;
  std::int32_t m_ProfileParam = 0;  // frames a second of the mobile profile
  std::int32_t m_OwnerNdId = 0;     // 0: recorded by this host
  std::int32_t m_CamIdOnRec = 0;
  char m_PidFilePath[PATH_MAX] = {};
  std::string m_FifoPath;
  std::string m_Spare;
  std::string m_SlicePathFmt;
  std::string m_HlsDir;
  std::string m_M3u8Path;
  std::string m_SliceUrlPrefix;
  std::int32_t m_VideoType = 0;  // a CAM_VIDEO_TYPE
  void* m_ShmAddr = nullptr;     // ring of the HLS feeder, detached by the destructor
  H264TS m_Segmenter;
  pthread_t m_FfmpegThread = 0;
  // Created and destroyed, never locked or signalled: the host's headers promise them to the handler's layout.
  pthread_mutex_t m_Mutex;
  pthread_cond_t m_Cond;
};

static_assert(PATH_MAX == 4096, "m_PidFilePath holds 4096 bytes");
