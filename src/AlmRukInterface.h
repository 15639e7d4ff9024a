// The library's only path to the node's agent: the node and service
// addresses read from the environment, and one POST of an encoded body.
#ifndef ALM_RUK_INTERFACE_H
#define ALM_RUK_INTERFACE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "rest_client.h"

class AlmRukInterface {
public:
    // HOSTING_SERVER_IP / SERVER_IP, taken when longer than one character.
    static void InitNodeIP();
    static void InitServiceIp();
    static void InitAllIp();

    static std::string GetNodeIP();
    // fork(): the address lock is held across the fork, so no child inherits it held (or half made).
    static void LockAddressesForFork();
    static void UnlockAddressesAfterFork();
    static std::string GetServiceIp();
    // Where an alarm says it comes from: the node address, else SERVER_IP as
    // it is set (even one character). Assigned to address only when one is
    // known (true); address is left as it was otherwise.
    static bool GetAlarmSourceAddress(std::string& address);
    static unsigned short GetLocalPort();

    // A request record with its buffers and header list attached; NULL on failure.
    static stru_REST_REQUEST* AllocRestRequest(size_t bodyLength);
    // Releases whatever parts of the request exist.
    static void FreeRestRequest(stru_REST_REQUEST* request);
    // The push request for body: URL, headers and a copy of the body; NULL on failure.
    static stru_REST_REQUEST* BuildPushRequest(const char* body, size_t bodyLength);
    // Posts body to the agent. The caller owns the response (freeRestResponse);
    // NULL on any failure.
    static stru_REST_RESPONSE* SendRestRequest(const char* body, size_t bodyLength);

    static const uint16_t m_uLocalPort;

private:
    // Never destroyed: send threads may still read them while the process exits.
    static std::string& m_strNodeIP;
    static std::string& m_strServiceIp;
};

#endif
