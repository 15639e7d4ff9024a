// The push-document builders of both generations as they were before they
// were made cheaper, kept unchanged (less their log lines): the reference the
// current builders are compared with, byte for byte, by the differential
// tests and the benchmarks.
#ifndef FROZEN_PUSH_DOCUMENT_H
#define FROZEN_PUSH_DOCUMENT_H

#include <list>

class AlarmEx;
struct _AlarmModel;

namespace frozen {

// Both return cJSON-allocated text (cJSON_free), NULL on failure.
char* GenRestDataJsonEx(const std::list<AlarmEx*>& alarms);
char* GenRestDataJson(const std::list<_AlarmModel*>& models);

}  // namespace frozen

#endif
