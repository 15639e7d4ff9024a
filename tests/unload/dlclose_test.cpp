// A host that loads the library with dlopen, uses it and unloads it again:
// the library's threads never end, so its code must stay mapped. This
// program does not link the library; it loads the built libalarmsdk.so.
#include <curl/curl.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "TestEnv.h"

namespace {

std::atomic<int> g_checks{0};
void OnCheck(char*) { ++g_checks; }

// base64 of {"callBackInfo":{"serviceName":"orders"},"callBackAlarms":"after unload"}
const char kCheck[] =
    "eyJjYWxsQmFja0luZm8iOnsic2VydmljZU5hbWUiOiJvcmRlcnMifSwiY2FsbEJhY2tBbGFybXMiOiJhZnRlciB1bmxvYWQifQ==";

TEST(Unload, ThreadsKeepRunningAfterDlclose) {
    testsupport::ScopedEnv appId("APPID", "app-7");
    testsupport::ScopedEnv appName("APPNAME", "orders-app");
    testsupport::ScopedEnv ip("TRANSPORT_SDK_IP", "127.0.0.1");
    const std::string port = std::to_string(testsupport::FreeLoopbackPort());
    testsupport::ScopedEnv sdkPort("TRANSPORT_SDK_PORT", port.c_str());

    void* library = dlopen(ALARMSDK_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, library) << dlerror();
    auto init = reinterpret_cast<int (*)()>(dlsym(library, "ZEBInitAlarmSDK"));
    auto registerCheck =
        reinterpret_cast<int (*)(const char*, void (*)(char*))>(dlsym(library, "ZEBRegisterAlarmCheckCallBackFun"));
    ASSERT_TRUE(init != nullptr && registerCheck != nullptr);
    ASSERT_EQ(0, init());
    ASSERT_EQ(0, registerCheck("orders", &OnCheck));
    ASSERT_EQ(0, dlclose(library));

    // The transport thread, the alarm-check thread and the send thread all run
    // on: a check posted now is answered and reaches the callback.
    CURL* curl = curl_easy_init();
    const std::string url = "http://127.0.0.1:" + port + "/orders/app-7/alarmCheck/callBack";
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, kCheck);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 10000L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, +[](char*, size_t size, size_t n, void*) { return size * n; });
    ASSERT_EQ(CURLE_OK, curl_easy_perform(curl));
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_cleanup(curl);
    EXPECT_EQ(200, status);
    EXPECT_TRUE(testsupport::WaitUntil([] { return g_checks.load() == 1; }, 10000));
}

}  // namespace
