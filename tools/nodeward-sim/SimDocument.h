// The stand-in's document reading lives in tools/agentproto, shared with the bridge.
#ifndef NODEWARD_SIM_DOCUMENT_H
#define NODEWARD_SIM_DOCUMENT_H

#include "AgentDocument.h"

#endif
