// The functions of the recordings' plug-in. Each serves one method; see docs/ref/webapi.md.
#pragma once

#include "velm/webapi.h"

namespace oculora {

void ListEvents(VELM::APIRequest* request, VELM::APIResponse* response);
void GetEvent(VELM::APIRequest* request, VELM::APIResponse* response);
void SendThumbnail(VELM::APIRequest* request, VELM::APIResponse* response);

void RecordEvent(VELM::APIRequest* request, VELM::APIResponse* response);
void StopEvent(VELM::APIRequest* request, VELM::APIResponse* response);
void KeepEvent(VELM::APIRequest* request, VELM::APIResponse* response);
void RemoveEvent(VELM::APIRequest* request, VELM::APIResponse* response);

void SetPlayRate(VELM::APIRequest* request, VELM::APIResponse* response);
void TellProgress(VELM::APIRequest* request, VELM::APIResponse* response);

}  // namespace oculora
