// The Java bridge's native half: each Native method calls the C interface,
// and the C interface's hooks (main queue, vendor, log, delegate) call back
// into the Java objects the bridge registered. Texts cross as UTF-8 byte
// arrays (see Text.java); a Java exception thrown into a hook is printed and
// cleared here, never left pending in the SDK's threads.
#include <jni.h>
#include <pthread.h>

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "kiv/face_liveness_lite.h"

namespace {

JavaVM* vm = nullptr;
pthread_key_t detachAtExit;

struct Methods {
  jmethodID post, postAfter;                                        // KivFaceLivenessLite.MainQueueBridge
  jmethodID launch, cancel;                                         // KivFaceLivenessLite.VendorBridge
  jmethodID status, requestAccess;                                  // KivFaceLivenessLite.CameraBridge
  jmethodID line;                                                   // KivFaceLivenessLite.LogBridge
  jmethodID run;                                                    // Runnable
  jmethodID onSuccess, onFailure, onError, onCancelled, onLoading;  // KivFaceLivenessLiteSDK
} methods;

// Set once, before the platform exists; read from any thread after.
jobject queueBridge = nullptr;
jobject vendorBridge = nullptr;
jobject cameraBridge = nullptr;
std::atomic<jobject> logBridge{nullptr};
pthread_t mainThread;
std::atomic<bool> mainBound{false};
// From the JVM's shutdown hooks on: a thread that attaches, detaches or calls
// into a JVM that is exiting blocks for good, and the SDK's pool threads are
// joined at the process's exit.
std::atomic<bool> vmExiting{false};

void detach(void*) {
  if (!vmExiting.load()) vm->DetachCurrentThread();
}

// The calling thread's environment; an SDK thread is attached on its first
// call into Java and detached when it ends. Null once the JVM exits.
JNIEnv* env() {
  if (vmExiting.load()) return nullptr;
  JNIEnv* e = nullptr;
  if (vm->GetEnv(reinterpret_cast<void**>(&e), JNI_VERSION_1_8) == JNI_OK) return e;
  if (vm->AttachCurrentThreadAsDaemon(reinterpret_cast<void**>(&e), nullptr) != JNI_OK) return nullptr;
  pthread_setspecific(detachAtExit, vm);
  return e;
}

// Runs `call` with room for local references that are all freed after it,
// and clears whatever Java threw.
template <typename Call>
void intoJava(Call&& call) {
  JNIEnv* e = env();
  if (e == nullptr || e->PushLocalFrame(8) != JNI_OK) return;
  call(e);
  if (e->ExceptionCheck()) {
    e->ExceptionDescribe();
    e->ExceptionClear();
  }
  e->PopLocalFrame(nullptr);
}

jbyteArray toJava(JNIEnv* e, const char* text) {
  if (text == nullptr) return nullptr;
  const auto size = static_cast<jsize>(std::char_traits<char>::length(text));
  jbyteArray bytes = e->NewByteArray(size);
  if (bytes != nullptr) e->SetByteArrayRegion(bytes, 0, size, reinterpret_cast<const jbyte*>(text));
  return bytes;
}

// A Java byte array as C text: absent for null; false in `ok` for one that
// holds a NUL, which C text cannot carry.
struct Text {
  std::optional<std::string> value;
  bool ok = true;
  const char* c_str() const { return value ? value->c_str() : nullptr; }
};

Text fromJava(JNIEnv* e, jbyteArray bytes) {
  Text text;
  if (bytes == nullptr) return text;
  const jsize size = e->GetArrayLength(bytes);
  text.value.emplace(static_cast<std::size_t>(size), '\0');
  e->GetByteArrayRegion(bytes, 0, size, reinterpret_cast<jbyte*>(text.value->data()));
  text.ok = text.value->find('\0') == std::string::npos;
  return text;
}

// ---- The main queue: the Java executor's thread ----------------------------

void post(void*, kiv_task task, void* data) {
  intoJava([&](JNIEnv* e) {
    e->CallVoidMethod(queueBridge, methods.post, reinterpret_cast<jlong>(task), reinterpret_cast<jlong>(data));
  });
}

uint64_t postAfter(void*, double seconds, kiv_task task, void* data) {
  intoJava([&](JNIEnv* e) {
    e->CallVoidMethod(queueBridge, methods.postAfter, static_cast<jdouble>(seconds), reinterpret_cast<jlong>(task),
                      reinterpret_cast<jlong>(data));
  });
  return 0;  // no cancel: the SDK ignores a cancelled task when it runs
}

int isCurrent(void*) { return mainBound.load() && pthread_equal(pthread_self(), mainThread) ? 1 : 0; }

// ---- The vendor ------------------------------------------------------------

void launch(void*, kiv_capture capture, const char* url, const char* token, const char* options) {
  intoJava([&](JNIEnv* e) {
    e->CallVoidMethod(vendorBridge, methods.launch, static_cast<jlong>(capture), toJava(e, url), toJava(e, token),
                      toJava(e, options));
  });
}

void cancel(void*, kiv_capture capture) {
  intoJava([&](JNIEnv* e) { e->CallVoidMethod(vendorBridge, methods.cancel, static_cast<jlong>(capture)); });
}

// ---- The camera prompt -----------------------------------------------------

kiv_camera_status cameraStatus(void*) {
  jint answer = KIV_CAMERA_DENIED;
  intoJava([&](JNIEnv* e) { answer = e->CallIntMethod(cameraBridge, methods.status); });
  return static_cast<kiv_camera_status>(answer);
}

void requestAccess(void*, kiv_camera_request request) {
  intoJava([&](JNIEnv* e) { e->CallVoidMethod(cameraBridge, methods.requestAccess, static_cast<jlong>(request)); });
}

void logLine(void*, const char* line) {
  jobject bridge = logBridge.load();
  if (bridge == nullptr) return;
  intoJava([&](JNIEnv* e) { e->CallVoidMethod(bridge, methods.line, toJava(e, line)); });
}

void runRunnable(void* runnable) {
  intoJava([&](JNIEnv* e) {
    e->CallVoidMethod(static_cast<jobject>(runnable), methods.run);
    e->DeleteGlobalRef(static_cast<jobject>(runnable));
  });
}

// ---- The delegate: the facade's Java object, held weakly -------------------

struct Handle {
  kiv_sdk* sdk = nullptr;
  jweak target = nullptr;
};

template <typename Call>
void toFacade(void* userData, Call&& call) {
  intoJava([&](JNIEnv* e) {
    jobject facade = e->NewLocalRef(static_cast<jweak>(userData));
    if (facade != nullptr) call(e, facade);
  });
}

void onSuccess(void* target, const char* signedResponse) {
  toFacade(target, [&](JNIEnv* e, jobject f) { e->CallVoidMethod(f, methods.onSuccess, toJava(e, signedResponse)); });
}
void onFailure(void* target, const char* type, const char* description, const char* signedResponse) {
  toFacade(target, [&](JNIEnv* e, jobject f) {
    e->CallVoidMethod(f, methods.onFailure, toJava(e, type), toJava(e, description), toJava(e, signedResponse));
  });
}
void onError(void* target, const char* type, const char* description) {
  toFacade(target, [&](JNIEnv* e, jobject f) {
    e->CallVoidMethod(f, methods.onError, toJava(e, type), toJava(e, description));
  });
}
void onCancelled(void* target) {
  toFacade(target, [](JNIEnv* e, jobject f) { e->CallVoidMethod(f, methods.onCancelled); });
}
void onLoading(void* target) {
  toFacade(target, [](JNIEnv* e, jobject f) { e->CallVoidMethod(f, methods.onLoading, JNI_TRUE); });
}
void onLoaded(void* target) {
  toFacade(target, [](JNIEnv* e, jobject f) { e->CallVoidMethod(f, methods.onLoading, JNI_FALSE); });
}

Handle* handleOf(jlong handle) { return reinterpret_cast<Handle*>(handle); }

jint status(kiv_status s) { return static_cast<jint>(s); }

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* javaVM, void*) {
  vm = javaVM;
  JNIEnv* e = nullptr;
  if (vm->GetEnv(reinterpret_cast<void**>(&e), JNI_VERSION_1_8) != JNI_OK) return JNI_ERR;
  if (pthread_key_create(&detachAtExit, detach) != 0) return JNI_ERR;
  auto method = [&](const char* type, const char* name, const char* signature) -> jmethodID {
    jclass found = e->FindClass(type);
    return found == nullptr ? nullptr : e->GetMethodID(found, name, signature);
  };
  methods.post = method("kiv/KivFaceLivenessLite$MainQueueBridge", "post", "(JJ)V");
  methods.postAfter = method("kiv/KivFaceLivenessLite$MainQueueBridge", "postAfter", "(DJJ)V");
  methods.launch = method("kiv/KivFaceLivenessLite$VendorBridge", "launch", "(J[B[B[B)V");
  methods.cancel = method("kiv/KivFaceLivenessLite$VendorBridge", "cancel", "(J)V");
  methods.status = method("kiv/KivFaceLivenessLite$CameraBridge", "status", "()I");
  methods.requestAccess = method("kiv/KivFaceLivenessLite$CameraBridge", "requestAccess", "(J)V");
  methods.line = method("kiv/KivFaceLivenessLite$LogBridge", "line", "([B)V");
  methods.run = method("java/lang/Runnable", "run", "()V");
  methods.onSuccess = method("kiv/KivFaceLivenessLiteSDK", "onSuccess", "([B)V");
  methods.onFailure = method("kiv/KivFaceLivenessLiteSDK", "onFailure", "([B[B[B)V");
  methods.onError = method("kiv/KivFaceLivenessLiteSDK", "onError", "([B[B)V");
  methods.onCancelled = method("kiv/KivFaceLivenessLiteSDK", "onCancelled", "()V");
  methods.onLoading = method("kiv/KivFaceLivenessLiteSDK", "onLoading", "(Z)V");
  return e->ExceptionCheck() ? JNI_ERR : JNI_VERSION_1_8;
}

JNIEXPORT jint JNICALL Java_kiv_Native_useMainThread(JNIEnv* e, jclass, jobject bridge) {
  if (bridge == nullptr) return status(KIV_ERROR_NULL_ARGUMENT);
  jobject held = e->NewGlobalRef(bridge);
  jobject previous = queueBridge;
  queueBridge = held;
  kiv_main_queue queue = {nullptr, post, postAfter, nullptr, isCurrent};
  const kiv_status result = kiv_use_host_main_queue(&queue);
  if (result != KIV_OK) {
    queueBridge = previous;
    e->DeleteGlobalRef(held);
  } else if (previous != nullptr) {
    e->DeleteGlobalRef(previous);
  }
  return status(result);
}

JNIEXPORT void JNICALL Java_kiv_Native_vmExiting(JNIEnv*, jclass) { vmExiting = true; }

JNIEXPORT void JNICALL Java_kiv_Native_bindMainThread(JNIEnv*, jclass) {
  mainThread = pthread_self();
  mainBound = true;
}

JNIEXPORT void JNICALL Java_kiv_Native_runTask(JNIEnv*, jclass, jlong task, jlong data) {
  reinterpret_cast<kiv_task>(task)(reinterpret_cast<void*>(data));
}

JNIEXPORT jint JNICALL Java_kiv_Native_useCaptureVendor(JNIEnv* e, jclass, jobject bridge) {
  if (bridge == nullptr) return status(KIV_ERROR_NULL_ARGUMENT);
  jobject held = e->NewGlobalRef(bridge);
  jobject previous = vendorBridge;
  vendorBridge = held;
  kiv_capture_vendor vendor = {nullptr, launch, cancel};
  const kiv_status result = kiv_use_host_capture_vendor(&vendor);
  if (result != KIV_OK) {
    vendorBridge = previous;
    e->DeleteGlobalRef(held);
  } else if (previous != nullptr) {
    e->DeleteGlobalRef(previous);
  }
  return status(result);
}

JNIEXPORT jint JNICALL Java_kiv_Native_useCamera(JNIEnv* e, jclass, jobject bridge) {
  if (bridge == nullptr) return status(KIV_ERROR_NULL_ARGUMENT);
  if (cameraBridge != nullptr) return status(KIV_ERROR_INVALID_STATE);
  cameraBridge = e->NewGlobalRef(bridge);
  kiv_camera camera = {nullptr, cameraStatus, requestAccess};
  const kiv_status result = kiv_use_host_camera(&camera);
  if (result != KIV_OK) {
    e->DeleteGlobalRef(cameraBridge);
    cameraBridge = nullptr;
  }
  return status(result);
}

JNIEXPORT jint JNICALL Java_kiv_Native_cameraAnswer(JNIEnv*, jclass, jlong request, jboolean granted) {
  return status(kiv_camera_answer(static_cast<kiv_camera_request>(request), granted ? 1 : 0));
}

JNIEXPORT jint JNICALL Java_kiv_Native_setDataDirectory(JNIEnv* e, jclass, jbyteArray path) {
  const Text text = fromJava(e, path);
  return text.ok ? status(kiv_set_data_directory(text.c_str())) : status(KIV_ERROR_INVALID_ARGUMENT);
}

JNIEXPORT jint JNICALL Java_kiv_Native_setBackendRootURL(JNIEnv* e, jclass, jint environment, jbyteArray url) {
  const Text text = fromJava(e, url);
  if (!text.ok) return status(KIV_ERROR_INVALID_ARGUMENT);
  return status(kiv_set_backend_root_url(static_cast<kiv_environment>(environment), text.c_str()));
}

JNIEXPORT jint JNICALL Java_kiv_Native_setLogHandler(JNIEnv* e, jclass, jobject bridge) {
  // The old bridge stays referenced: a line may be on its way to it.
  logBridge = bridge == nullptr ? nullptr : e->NewGlobalRef(bridge);
  return status(bridge == nullptr ? kiv_set_log_handler(nullptr, nullptr) : kiv_set_log_handler(logLine, nullptr));
}

JNIEXPORT jint JNICALL Java_kiv_Native_onBackgroundWorkDone(JNIEnv* e, jclass, jobject runnable) {
  if (runnable == nullptr) return status(KIV_ERROR_NULL_ARGUMENT);
  jobject held = e->NewGlobalRef(runnable);
  const kiv_status result = kiv_on_background_work_done(runRunnable, held);
  if (result != KIV_OK) e->DeleteGlobalRef(held);
  return status(result);
}

JNIEXPORT jint JNICALL Java_kiv_Native_create(JNIEnv* e, jclass, jlongArray out) {
  if (out == nullptr || e->GetArrayLength(out) < 1) return status(KIV_ERROR_NULL_ARGUMENT);
  auto* handle = new Handle;
  const kiv_status result = kiv_sdk_create(&handle->sdk);
  if (result != KIV_OK) {
    delete handle;
    return status(result);
  }
  const jlong value = reinterpret_cast<jlong>(handle);
  e->SetLongArrayRegion(out, 0, 1, &value);
  return status(KIV_OK);
}

JNIEXPORT jint JNICALL Java_kiv_Native_destroy(JNIEnv* e, jclass, jlong handle) {
  Handle* h = handleOf(handle);
  if (h == nullptr) return status(KIV_ERROR_NULL_ARGUMENT);
  const kiv_status result = kiv_sdk_destroy(h->sdk);
  if (result != KIV_OK) return status(result);
  // No delegate call arrives for this handle any more.
  if (h->target != nullptr) e->DeleteWeakGlobalRef(h->target);
  delete h;
  return status(KIV_OK);
}

JNIEXPORT jint JNICALL Java_kiv_Native_setDelegate(JNIEnv* e, jclass, jlong handle, jobject target) {
  Handle* h = handleOf(handle);
  if (h == nullptr || target == nullptr) return status(KIV_ERROR_NULL_ARGUMENT);
  jweak weak = e->NewWeakGlobalRef(target);
  kiv_delegate delegate = {weak, onSuccess, onFailure, onError, onCancelled, onLoading, onLoaded};
  const kiv_status result = kiv_sdk_set_delegate(h->sdk, &delegate);
  if (result != KIV_OK) {
    e->DeleteWeakGlobalRef(weak);
    return status(result);
  }
  if (h->target != nullptr) e->DeleteWeakGlobalRef(h->target);
  h->target = weak;
  return status(KIV_OK);
}

JNIEXPORT jint JNICALL Java_kiv_Native_setup(JNIEnv* e, jclass, jlong handle, jbyteArray mobileToken,
                                             jbyteArray personId, jbyteArray customLocalization,
                                             jbyteArray bundleDirectory, jbyteArray uiCustomizationJson,
                                             jint environment, jboolean loading) {
  Handle* h = handleOf(handle);
  if (h == nullptr) return status(KIV_ERROR_NULL_ARGUMENT);
  const Text texts[] = {fromJava(e, mobileToken), fromJava(e, personId), fromJava(e, customLocalization),
                        fromJava(e, bundleDirectory), fromJava(e, uiCustomizationJson)};
  for (const auto& text : texts) {
    if (!text.ok) return status(KIV_ERROR_INVALID_ARGUMENT);
  }
  return status(kiv_sdk_setup(h->sdk, texts[0].c_str(), texts[1].c_str(), texts[2].c_str(), texts[3].c_str(),
                              texts[4].c_str(), static_cast<kiv_environment>(environment), loading ? 1 : 0));
}

JNIEXPORT jint JNICALL Java_kiv_Native_prewarm(JNIEnv*, jclass, jlong handle) {
  Handle* h = handleOf(handle);
  return h == nullptr ? status(KIV_ERROR_NULL_ARGUMENT) : status(kiv_sdk_prewarm(h->sdk));
}

JNIEXPORT jint JNICALL Java_kiv_Native_start(JNIEnv*, jclass, jlong handle) {
  Handle* h = handleOf(handle);
  return h == nullptr ? status(KIV_ERROR_NULL_ARGUMENT) : status(kiv_sdk_start(h->sdk));
}

JNIEXPORT jint JNICALL Java_kiv_Native_reportConnecting(JNIEnv*, jclass, jlong capture) {
  return status(kiv_capture_report_connecting(static_cast<kiv_capture>(capture)));
}

JNIEXPORT jint JNICALL Java_kiv_Native_reportConnected(JNIEnv*, jclass, jlong capture) {
  return status(kiv_capture_report_connected(static_cast<kiv_capture>(capture)));
}

JNIEXPORT jint JNICALL Java_kiv_Native_reportProcessing(JNIEnv* e, jclass, jlong capture, jdouble progress,
                                                        jbyteArray message) {
  const Text text = fromJava(e, message);
  if (!text.ok) return status(KIV_ERROR_INVALID_ARGUMENT);
  return status(kiv_capture_report_processing(static_cast<kiv_capture>(capture), progress, text.c_str()));
}

JNIEXPORT jint JNICALL Java_kiv_Native_reportSuccess(JNIEnv*, jclass, jlong capture) {
  return status(kiv_capture_report_success(static_cast<kiv_capture>(capture)));
}

JNIEXPORT jint JNICALL Java_kiv_Native_reportFailure(JNIEnv* e, jclass, jlong capture, jobjectArray codes,
                                                     jobjectArray descriptions) {
  if (codes == nullptr || descriptions == nullptr) return status(KIV_ERROR_NULL_ARGUMENT);
  const jsize count = e->GetArrayLength(codes);
  if (e->GetArrayLength(descriptions) != count) return status(KIV_ERROR_INVALID_ARGUMENT);
  std::vector<Text> texts;
  texts.reserve(static_cast<std::size_t>(count) * 2);
  for (jsize i = 0; i < count; ++i) {
    for (jobjectArray array : {codes, descriptions}) {
      auto element = static_cast<jbyteArray>(e->GetObjectArrayElement(array, i));
      texts.push_back(fromJava(e, element));
      e->DeleteLocalRef(element);
      if (!texts.back().ok) return status(KIV_ERROR_INVALID_ARGUMENT);
    }
  }
  std::vector<kiv_failure_reason> reasons;
  for (std::size_t i = 0; i < texts.size(); i += 2) reasons.push_back({texts[i].c_str(), texts[i + 1].c_str()});
  return status(kiv_capture_report_failure(static_cast<kiv_capture>(capture), reasons.data(), reasons.size()));
}

JNIEXPORT jint JNICALL Java_kiv_Native_reportCanceled(JNIEnv*, jclass, jlong capture, jint canceler) {
  return status(kiv_capture_report_canceled(static_cast<kiv_capture>(capture), static_cast<kiv_canceler>(canceler)));
}

JNIEXPORT jint JNICALL Java_kiv_Native_reportError(JNIEnv* e, jclass, jlong capture, jint error,
                                                   jbyteArray description) {
  const Text text = fromJava(e, description);
  if (!text.ok) return status(KIV_ERROR_INVALID_ARGUMENT);
  return status(
      kiv_capture_report_error(static_cast<kiv_capture>(capture), static_cast<kiv_capture_error>(error), text.c_str()));
}

JNIEXPORT jint JNICALL Java_kiv_Native_requestDismissal(JNIEnv*, jclass, jlong capture) {
  return status(kiv_capture_request_dismissal(static_cast<kiv_capture>(capture)));
}

}  // extern "C"
