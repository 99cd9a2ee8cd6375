# Makes a stand-in vendor trust pair: a configuration-signing key, its public half and a default
# configuration for SERVICE_URL signed with it.
#   cmake -DSIGN_TOOL=... -DOUTPUT_DIR=... -DSERVICE_URL=... -P maketrustpair.cmake
set(private ${OUTPUT_DIR}/vendor-config.pem)
set(public ${OUTPUT_DIR}/vendor-config.pub)
file(MAKE_DIRECTORY ${OUTPUT_DIR})
execute_process(COMMAND ${SIGN_TOOL} keygen --force --bits 2048 --out ${private} --public-out ${public}
    COMMAND_ERROR_IS_FATAL ANY)

file(READ ${public} root_key)
string(STRIP "${root_key}" root_key)
string(REPLACE "\n" "\\n" root_key "${root_key}")
file(WRITE ${OUTPUT_DIR}/vendor-unsigned.json
    "{\"serviceUrl\": \"${SERVICE_URL}\", \"rootIdentity\": {\"uuid\": \"vendor-root\", \"name\": \"Vendor\", \"publicKey\": \"${root_key}\"}}\n")
execute_process(COMMAND ${SIGN_TOOL} sign --key ${private} ${OUTPUT_DIR}/vendor-unsigned.json
    OUTPUT_FILE ${OUTPUT_DIR}/vendor-default.json
    COMMAND_ERROR_IS_FATAL ANY)
