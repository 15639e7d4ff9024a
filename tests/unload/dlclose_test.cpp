// A host that loads the library with dlopen, uses it and unloads it: the library's threads never end, so its code must
// stay mapped. This program does not link the library; it loads the built libalarmsdk.so.
#include <curl/curl.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>

#include "TestEnv.h"

namespace {

std::atomic<int> g_checks{0};
void OnCheck(char*) { ++g_checks; }

TEST(Unload, ThreadsKeepRunningAfterDlclose) {
    const testsupport::LoopbackTransport transport;
    testsupport::ScopedEnv appId("APPID", "app-7"), appName("APPNAME", "orders-app");
    void* library = dlopen(ALARMSDK_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, library) << dlerror();
    auto init = reinterpret_cast<int (*)()>(dlsym(library, "ZEBInitAlarmSDK"));
    auto check =
        reinterpret_cast<int (*)(const char*, void (*)(char*))>(dlsym(library, "ZEBRegisterAlarmCheckCallBackFun"));
    ASSERT_TRUE(init != nullptr && check != nullptr);
    ASSERT_EQ(0, init());
    ASSERT_EQ(0, check("orders", &OnCheck));
    ASSERT_EQ(0, dlclose(library));

    // The library's threads run on: a check posted now reaches the callback.
    // (base64 of {"callBackInfo":{"serviceName":"orders"},"callBackAlarms":"after unload"})
    CURL* curl = curl_easy_init();
    const std::string url = "http://127.0.0.1:" + transport.portText + "/orders/app-7/alarmCheck/callBack";
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS,
                     "eyJjYWxsQmFja0luZm8iOnsic2VydmljZU5hbWUiOiJvcmRlcnMifSwiY2FsbEJhY2t"
                     "BbGFybXMiOiJhZnRlciB1bmxvYWQifQ==");
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 10000L);
    curl_easy_setopt(
        curl, CURLOPT_WRITEFUNCTION, +[](char*, size_t size, size_t n, void*) { return size * n; });
    EXPECT_EQ(CURLE_OK, curl_easy_perform(curl));
    curl_easy_cleanup(curl);
    EXPECT_TRUE(testsupport::WaitUntil([] { return g_checks.load() == 1; }, 10000));
}

}  // namespace
