// HTTP calls with libcurl.
#include <curl/curl.h>

#include <memory>
#include <string_view>

#include "relay/http/http_table.h"

namespace oculora {
namespace {

constexpr long kConnectMs = 5000;
constexpr long kQuietSeconds = 35;
constexpr long kReadBytes = 256L * 1024;
constexpr std::size_t kMostHeadBytes = 16384;
constexpr std::size_t kMostHeadFields = 64;

struct MultiDeleter {
  void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct ListDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

std::string_view Trimmed(std::string_view text) {
  constexpr char kSpace[] = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

// What people are told of a call that failed, viewers among them: the library's text for these names the address, which
// is not theirs to know, and a time that makes it another text at each try.
std::string WhyFailed(CURLcode result, const char* detail) {
  switch (result) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return "its name has no address";
    case CURLE_COULDNT_CONNECT:
      return "nothing answers at its address";
    case CURLE_OPERATION_TIMEDOUT:
      return "no answer in time";
    default:
      return detail[0] != '\0' ? detail : curl_easy_strerror(result);
  }
}

// One call on its way. Stays where it is: the library keeps its address.
class Transfer {
 public:
  Transfer(const HttpCall& call, HttpSink& sink) : m_Easy(curl_easy_init()), m_Sink(&sink) {
    if (m_Easy) Prepare(call);
  }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  CURL* Handle() const { return m_Easy.get(); }

  // Tells the sink of an answer without a body. Why the call failed; empty when it did not.
  std::string Finish(CURLcode result) {
    if (!m_Refusal.empty()) return m_Refusal;
    if (result == CURLE_OK && !m_Began && !Begin()) return m_Refusal;
    if (result == CURLE_OK) return {};
    return WhyFailed(result, m_Error);
  }

 private:
  template <typename Value>
  void Set(CURLoption option, Value value) {
    curl_easy_setopt(m_Easy.get(), option, value);
  }

  void Prepare(const HttpCall& call) {
    Set(CURLOPT_URL, call.url.c_str());
    Set(CURLOPT_PROTOCOLS_STR, "http,https");
    Set(CURLOPT_PROXY, "");  // recording servers are near; a proxy of the environment is meant for others
    Set(CURLOPT_POSTFIELDSIZE, static_cast<long>(call.form.size()));
    Set(CURLOPT_COPYPOSTFIELDS, call.form.c_str());
    Set(CURLOPT_HTTPHEADER, Fields(call));
    Set(CURLOPT_CONNECTTIMEOUT_MS, kConnectMs);
    Set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    Set(CURLOPT_LOW_SPEED_TIME, kQuietSeconds);
    if (!call.trusted.empty()) Set(CURLOPT_CAINFO, call.trusted.c_str());
    if (call.totalSeconds > 0) Set(CURLOPT_TIMEOUT, static_cast<long>(call.totalSeconds));
    Set(CURLOPT_NOSIGNAL, 1L);
    Set(CURLOPT_BUFFERSIZE, kReadBytes);
    Set(CURLOPT_ERRORBUFFER, m_Error);
    Set(CURLOPT_HEADERFUNCTION, &Transfer::OnHeader);
    Set(CURLOPT_HEADERDATA, this);
    Set(CURLOPT_WRITEFUNCTION, &Transfer::OnData);
    Set(CURLOPT_WRITEDATA, this);
  }

  curl_slist* Fields(const HttpCall& call) {
    // A body as small as these is sent at once, without asking first.
    curl_slist* list = curl_slist_append(nullptr, "Expect:");
    for (const std::string& field : call.fields) list = curl_slist_append(list, field.c_str());
    m_Fields.reset(list);
    return list;
  }

  static std::size_t OnHeader(char* data, std::size_t, std::size_t size, void* self) {
    return static_cast<Transfer*>(self)->TakeHeader({data, size}) ? size : 0;
  }

  static std::size_t OnData(char* data, std::size_t, std::size_t size, void* self) {
    auto* transfer = static_cast<Transfer*>(self);
    if (!transfer->m_Began && !transfer->Begin()) return 0;
    return transfer->Take(data, size) ? size : 0;
  }

  bool Refuse(const char* reason) {
    m_Refusal = reason;
    return false;
  }

  bool TakeHeader(std::string_view line) {
    m_HeadBytes += line.size();
    // Counted over interim answers too: they may be endless as well. Trailers come behind the body and are dropped.
    if (m_HeadBytes > kMostHeadBytes || m_Head.fields.size() >= kMostHeadFields) {
      return Refuse("its answer has too many header fields");
    }
    if (m_Began) return true;
    if (line.starts_with("HTTP/")) {
      m_Head.fields.clear();
      return true;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) return true;
    m_Head.fields.emplace_back(Trimmed(line.substr(0, colon)), Trimmed(line.substr(colon + 1)));
    return true;
  }

  bool Begin() {
    m_Began = true;
    long status = 0;
    curl_easy_getinfo(m_Easy.get(), CURLINFO_RESPONSE_CODE, &status);
    m_Head.status = static_cast<int>(status);
    return m_Sink->Begin(m_Head) || Refuse("its answer was not taken");
  }

  bool Take(const char* data, std::size_t size) {
    return m_Sink->Data(data, size) || Refuse("its answer was not taken to the end");
  }

  std::unique_ptr<CURL, EasyDeleter> m_Easy;
  std::unique_ptr<curl_slist, ListDeleter> m_Fields;
  HttpSink* m_Sink;
  HttpHead m_Head;
  std::size_t m_HeadBytes = 0;
  bool m_Began = false;
  std::string m_Refusal;
  char m_Error[CURL_ERROR_SIZE] = "";
};

// Which of the transfers a handle belongs to.
std::size_t IndexOf(const std::vector<std::unique_ptr<Transfer>>& transfers, const CURL* handle) {
  std::size_t i = 0;
  while (i < transfers.size() && transfers[i]->Handle() != handle) ++i;
  return i;
}

void CollectResults(CURLM* multi, const std::vector<std::unique_ptr<Transfer>>& transfers, std::string* errors) {
  int left = 0;
  while (const CURLMsg* message = curl_multi_info_read(multi, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    const CURLcode result = message->data.result;
    const std::size_t i = IndexOf(transfers, message->easy_handle);
    if (i < transfers.size()) errors[i] = transfers[i]->Finish(result);
  }
}

void SendSideBySide(const std::vector<std::unique_ptr<Transfer>>& transfers, std::string* errors) {
  const std::unique_ptr<CURLM, MultiDeleter> multi(curl_multi_init());
  if (!multi) return;
  for (const auto& transfer : transfers) curl_multi_add_handle(multi.get(), transfer->Handle());
  int running = 0;
  while (curl_multi_perform(multi.get(), &running) == CURLM_OK && running > 0) {
    curl_multi_poll(multi.get(), nullptr, 0, 1000, nullptr);
  }
  CollectResults(multi.get(), transfers, errors);
  for (const auto& transfer : transfers) curl_multi_remove_handle(multi.get(), transfer->Handle());
}

void Send(const HttpCall* calls, HttpSink* const* sinks, std::string* errors, std::size_t count) {
  std::vector<std::unique_ptr<Transfer>> transfers;
  transfers.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    errors[i] = "the call could not be made";
    transfers.push_back(std::make_unique<Transfer>(calls[i], *sinks[i]));
    if (transfers.back()->Handle() == nullptr) return;
  }
  if (count == 1) {
    errors[0] = transfers[0]->Finish(curl_easy_perform(transfers[0]->Handle()));
  } else {
    SendSideBySide(transfers, errors);
  }
}

constexpr HttpTable kTable = {kHttpTableVersion, &Send};

}  // namespace
}  // namespace oculora

extern "C" __attribute__((visibility("default"))) const oculora::HttpTable* OculoraHttpTable() {
  return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK ? &oculora::kTable : nullptr;
}
