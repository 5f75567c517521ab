# Root URLs of the maker's backend per stage. They are deployment values: the
# defaults sit under the reserved .example domain until real hosts are given.
# Each must end in "/". A host can still override them at run time.
set(KIV_BACKEND_ROOT_DEV "https://dev.backend.kiv.example/" CACHE STRING "Backend root URL for the dev stage")
set(KIV_BACKEND_ROOT_BETA "https://beta.backend.kiv.example/" CACHE STRING "Backend root URL for the beta stage")
set(KIV_BACKEND_ROOT_PROD "https://backend.kiv.example/" CACHE STRING "Backend root URL for the prod stage")
