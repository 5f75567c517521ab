/* The sandbox backend for a test written in C: started in this process on
 * an ephemeral port of 127.0.0.1, stopped by kiv_test_sandbox_stop. */
#ifndef KIV_TEST_SANDBOX_H
#define KIV_TEST_SANDBOX_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kiv_test_sandbox kiv_test_sandbox;

/* NULL when it cannot listen (the reason is printed on stderr). */
kiv_test_sandbox* kiv_test_sandbox_start(void);
void kiv_test_sandbox_stop(kiv_test_sandbox* sandbox);
/* "http://127.0.0.1:<port>/"; lives as long as the sandbox. */
const char* kiv_test_sandbox_url(const kiv_test_sandbox* sandbox);
/* A mobile token issued to `issuer`; lives as long as the sandbox. */
const char* kiv_test_sandbox_token(kiv_test_sandbox* sandbox, const char* issuer);
/* How many requests for `path` (e.g. "bff/sessions") it received. */
size_t kiv_test_sandbox_requests(const kiv_test_sandbox* sandbox, const char* path);

#ifdef __cplusplus
}
#endif

#endif
