// The loader's steps from the parsed XML document to the definition list.
// They take the XML parser's types, so they stay out of the public
// AlarmConfig.h (a service must not need the parser's headers); only the
// loader and the tests call them. They stay exported with C linkage because
// version 1 of the library exported them (its binary interface keeps them).
#ifndef ALARM_BUILD_ALARM_CONF_INFO_H
#define ALARM_BUILD_ALARM_CONF_INFO_H

#include <xercesc/dom/DOM.hpp>

#include "AlarmConfig.h"

extern "C" {

/* Builds the definition list from the document element into cfg->head: one
 * zeroed definition per element child of root, then the ten field passes,
 * each pairing the n-th element of its name with the n-th definition. 0, or
 * -1 when root or cfg is NULL or root has no element children. */
ALARMSDK_API int ALM_BuildConfInfoFromXml(xercesc::DOMElement* root, ALMCfgItems* cfg);
/* count zeroed definitions linked in order; NULL when count is 0 or memory
 * runs out (nothing is kept then). */
ALARMSDK_API stAlarmItems* ALM_BuildStructInit(unsigned long count);
/* Every element named name below root, in document order; NULL on bad input.
 * The list belongs to the document. */
ALARMSDK_API xercesc::DOMNodeList* ALM_GetNodeListByElements(xercesc::DOMElement* root, const char* name);
/* The pass that reads "AlarmID" and builds each definition's bilingual name. */
ALARMSDK_API void ALM_BuildAlarmID(xercesc::DOMElement* root, stAlarmItems* head);
/* One child of a parameter element ("ParamName", "ParamType", "ParamLen",
 * "ParamClass", "ENUM" or "Bit") into parameter index of item. */
ALARMSDK_API void ALM_GetAlarmParaValue(xercesc::DOMNode* node, stAlarmItems* item, int64_t index);
/* Stores name and its English and Chinese texts (key "<alarmId>_<name>"). */
ALARMSDK_API void ALM_GetParamName(stParaDef* para, int64_t alarmId, const char* name);
/* The four toggle settings from the children of one "ToggleParams". */
ALARMSDK_API void ALM_GetToggleParaValue(xercesc::DOMNode* toggle, stAlarmItems* item);
/* The enumeration whose element's first child is firstChild: a malloc'ed
 * array and *count, or NULL (and *count untouched) when there is none or an
 * entry's language key would not fit. */
ALARMSDK_API stEnumBitDef* ALM_GetFieldEnumValue(xercesc::DOMNode* firstChild, int64_t* count, int64_t alarmId);
/* Walks firstChild and its siblings: keeps the "EnumType" text in enumType
 * (127 characters at most) and returns the "Values" element, or NULL. */
ALARMSDK_API xercesc::DOMNode* ALM_GetEnumKey(xercesc::DOMNode* firstChild, char* enumType, size_t enumTypeSize);
/* Element children of values; 0 when either argument is NULL. */
ALARMSDK_API int64_t ALM_CountEnumNum(xercesc::DOMNode* enumNode, xercesc::DOMNode* values);
/* Fills out (room for every element child of values); the number of entries,
 * or -1 when a language key would not fit. */
ALARMSDK_API int64_t ALM_ReadEnumItem(xercesc::DOMNode* values, stEnumBitDef* out, const char* enumType,
                                      int64_t alarmId);
}

#endif
