// The request and response of one web-API call.
//
// One CGI process serves one request on one thread; neither class is thread-safe. Nothing here blocks except the first
// question about the session, which opens the records once (read-only).
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

namespace VELM {

struct RequestState;  // the host's own

class APIRequest {
 public:
  explicit APIRequest(std::unique_ptr<RequestState> state);
  ~APIRequest();
  APIRequest(const APIRequest&) = delete;
  APIRequest& operator=(const APIRequest&) = delete;

  // The parameter `name` from the query string, then the form body; given twice, the first counts.
  // The default decides the type:
  //  - a string: the text as it stands, except that a JSON string is unquoted ("\"7:5\"" is 7:5, 1e5 stays "1e5");
  //  - an integer, real or boolean: a JSON number or boolean that the default's type can hold, so that asInt() or
  //    asBool() on the result never throws; anything else is the default;
  //  - null: any JSON value; text that is no JSON is given as a string.
  Json::Value GetParam(const std::string& name, const Json::Value& defaultValue) const;

  // The cookie `name`, percent-decoded, or the default when the client sent none.
  std::string GetCookie(const std::string& name, const std::string& defaultValue) const;

  // The CGI environment variable `name`, or the default when it is not set.
  std::string GetEnv(const std::string& name, const std::string& defaultValue) const;

  bool IsAuthorized() const;                            // a live login session came with the request
  bool IsAdmin() const;                                 // its user is an administrator
  bool HasAppPriv(const std::string& privilege) const;  // its user holds the application privilege
  std::string GetLoginUserName() const;                 // empty without a session
  unsigned GetLoginUID() const;                         // 0 without a session
  std::string GetRemoteIP() const;                      // the client's address as the front gives it

  // The session id the client presented: parameter "_sid", else cookie "oculora_sid", whether or not it is still live.
  // Only when both came, differ and the parameter's session is over while the cookie's lives, the cookie's (that asks
  // the records). Empty when none was given or when it is not 16 to 64 characters of [A-Za-z0-9_-] (it becomes part of
  // file names). The same on every call.
  std::string GetSessionID() const;

  std::string GetAPIClass() const;   // parameter "api"
  std::string GetAPIMethod() const;  // parameter "method"
  int GetAPIVersion() const;         // parameter "version", 1 when absent

  RequestState& state() const { return *m_State; }  // for the host's own plug-ins

 private:
  std::unique_ptr<RequestState> m_State;
};

class APIResponse {
 public:
  // {"success":true,"data":...}; the last SetSuccess or SetError wins. A null `data` leaves the key out.
  void SetSuccess(const Json::Value& data);

  // {"success":false,"error":{"code":N,"data":...}}. A null `data` leaves the key out.
  void SetError(int code, const Json::Value& data);

  // Switched off by operations that have written their own answer to standard output.
  void SetEnableOutput(bool enable) { m_OutputEnabled = enable; }

  bool IsOutputEnabled() const { return m_OutputEnabled; }
  const Json::Value& GetEnvelope() const { return m_Envelope; }  // null until one of the setters ran

  // One more response header ("Set-Cookie: ..."), without line end. For the host's own plug-ins.
  void AddHeader(const std::string& line);
  const std::string& GetHeaders() const { return m_Headers; }

 private:
  Json::Value m_Envelope;
  std::string m_Headers;  // each line closed by CR LF
  bool m_OutputEnabled = true;
};

}  // namespace VELM
