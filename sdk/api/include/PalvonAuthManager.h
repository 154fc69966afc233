/**
 * @file PalvonAuthManager.h
 * @brief Public interface of the Palvon authentication-manager client library.
 *
 * The library forwards every call as a typed key/value message to the
 * authentication-manager service of the same user and returns the service's
 * result code. It performs no authentication itself.
 *
 * This header is valid C (C11) and C++ (C++11 or later). In C++ every type
 * and function lives in the namespace @c PalvonAuthManagerSDK; the functions
 * have C linkage in both languages, so their symbols carry no decoration.
 *
 * Ownership rules:
 * - texts returned through @c AMChar** are released with
 *   PalvonAuthManager_FreeString();
 * - AM_SERVER_INFO records with PalvonAuthManager_FreeServerInfo();
 * - AM_VPN_AUTHORIZATION_INFO records with
 *   PalvonAuthManager_FreeVpnAuthorizationInfo();
 * - header arrays of PalvonAuthManager_GetResponseHeaders() with
 *   PalvonAuthManager_FreeResponseHeaders().
 * Every release function accepts a null pointer.
 */
#ifndef PALVON_AUTH_MANAGER_H
#define PALVON_AUTH_MANAGER_H

#include <stddef.h>
#include <stdint.h>
#include <wchar.h>
#ifndef __cplusplus
#include <stdbool.h>
#endif

/** Marks a declaration as part of the library's exported interface. */
#define PALVONAUTHMANAGER_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
namespace PalvonAuthManagerSDK {
extern "C" {
#endif

/** Result of every call; see AMResultCode for the values. */
typedef uint32_t AMResult;
/** Character of every text parameter: a 32-bit wchar_t holding UTF-32. */
typedef wchar_t AMChar;
/** UTF-8 character; used only by PalvonAuthManager_LaunchRZPFile(). */
typedef char AMUTF8Char;
/** Unsigned 32-bit count, level, size or time-out. */
typedef uint32_t AMUint;
/** Byte of an HTTP request or response body. */
typedef unsigned char AMByte;
/** Connection to the service, issued by the service. */
typedef uint32_t ConnectionHandle;
/** Request context; every function taking one answers AM_RESULT_NOT_IMPLEMENTED. */
typedef uint32_t RequestContextHandle;
/** VPN authentication context, issued by the service. */
typedef uint32_t VpnAuthContextHandle;
/** Proxied HTTP request, issued by the service. */
typedef uint32_t AMHttpHandle;
/** Certificate handle; the certificate calls are not implemented. */
typedef uint32_t AMCertificate;
/** Authentication flags, passed to the service unchanged. */
typedef uint32_t AMAuthenticationFlags;
/** Authentication outcome reported by the service. */
typedef uint32_t AMAuthenticationResult;
/** Logon status reported by the service. */
typedef uint32_t AMLogonStatus;
/** HTTP status parameter of a request-context call (never read). */
typedef uint32_t AMHttpStatus;
/** Failure-reason parameter of a request-context call (never read). */
typedef uint32_t AMHttpFailureReason;

/**
 * Connection status notification accepted by
 * PalvonAuthManager_CreateConnection(). The library neither stores nor calls
 * it.
 */
typedef void (*StatusChangeCallback)(uint32_t, void*, uint32_t, int32_t);

/** Result codes. Any other value a service returns is passed on unchanged. */
enum AMResultCode {
  /** The call succeeded. */
  AM_RESULT_SUCCESS = 0x0000,
  /** The pipes to the service could not be set up (registration failed). */
  AM_RESULT_IPC_SETUP_FAILED = 0xFFFF,
  /** Service answer to initialisation that counts as success. */
  AM_RESULT_ALREADY_INITIALIZED = 0xFFFE,
  /** The library is not initialised. */
  AM_RESULT_NOT_INITIALIZED = 0xFFFD,
  /** A required pointer argument is null, or a length was given without data. */
  AM_RESULT_BAD_PARAMETER = 0xFFFB,
  /** The service does not know the handle. */
  AM_RESULT_INVALID_HANDLE = 0xFFFA,
  /** The message could not be exchanged, or an unexpected error ended the call. */
  AM_RESULT_COMMUNICATION_FAILURE = 0xFFF8,
  /** Not implemented, or not available at the negotiated API level. */
  AM_RESULT_NOT_IMPLEMENTED = 0xFFF5,
  /** The service is busy; consumed by the library's retry loop, never returned. */
  AM_RESULT_SERVICE_BUSY = 0xFF00
};

/** Description of a gateway. Either text may be null. */
typedef struct _AM_GATEWAY_INFO { /* NOLINT(bugprone-reserved-identifier) */
  /** Friendly name of the gateway; null means "not sent". */
  const AMChar* friendlyName;
  /** Logon point URL of the gateway; null means "not sent". */
  const AMChar* logonPointUrl;
  /** Gateway edition, passed through unchanged. */
  AMUint amGatewayEdition;
  /** Gateway authentication type, passed through unchanged. */
  AMUint amGatewayAuthType;
  /** Gateway rewrite rule; sent only by gateway discovery. */
  AMUint amGatewayReWriteRule;
} AM_GATEWAY_INFO;

/**
 * Server description returned by PalvonAuthManager_DetermineServerType();
 * release it with PalvonAuthManager_FreeServerInfo().
 */
typedef struct _AM_SERVER_INFO { /* NOLINT(bugprone-reserved-identifier) */
  /** Server type reported by the service; 2 means a gateway. */
  AMUint serverType;
  /** Gateway description when serverType is 2, otherwise null. */
  AM_GATEWAY_INFO* gatewayInfo;
} AM_SERVER_INFO;

/**
 * VPN authorization returned by PalvonAuthManager_GetVpnAuthorizationInfo();
 * release it with PalvonAuthManager_FreeVpnAuthorizationInfo().
 */
typedef struct _AM_VPN_AUTHORIZATION_INFO { /* NOLINT(bugprone-reserved-identifier) */
  /** Authentication outcome reported by the service. */
  AMAuthenticationResult amAuthenticationResult;
  /** VPN authorization string, owned by the record. */
  AMChar* vpnauthorizationstr;
  /** Logon point URL of the VPN session, owned by the record. */
  AMChar* vpnsessionlogonpointurl;
} AM_VPN_AUTHORIZATION_INFO;

/**
 * Client window description for PalvonAuthManager_SetClientWindow().
 * The first field is the bottom coordinate; keep the order.
 */
typedef struct _AMWindowInfo { /* NOLINT(bugprone-reserved-identifier) */
  /** Bottom coordinate. */
  int32_t winbottom;
  /** Left coordinate. */
  int32_t winleft;
  /** Width. */
  int32_t winwidth;
  /** Height. */
  int32_t winheight;
  /** Window name, may be null. */
  const AMChar* winname;
  /** Window identifier as text, may be null. */
  const AMChar* winid;
  /** Application name of the window, may be null. */
  const AMChar* winamName;
} AMWindowInfo;

/** Pointer to a client window description. */
typedef AMWindowInfo* AMWindowId;

/* ------------------------------------------------------------------------ */
/* Lifecycle                                                                 */
/* ------------------------------------------------------------------------ */

/**
 * Initialises the library: registers the process with the service, asks for
 * its version and negotiates the API level. Calls nest; each successful call
 * needs one PalvonAuthManager_Uninitialize(). Blocks until a service listens.
 * @return 0, AM_RESULT_IPC_SETUP_FAILED, or the service's result.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_Initialize(void);

/**
 * Counts one initialisation down; the last one tells the service and releases
 * the pipes.
 * @return 0, AM_RESULT_NOT_INITIALIZED, or the service's result.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_Uninitialize(void);

/**
 * Reports the negotiated API level (1 or 2).
 * @param apiLevel receives the level; must not be null.
 * @return 0 or AM_RESULT_NOT_INITIALIZED.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetApiLevel(AMUint* apiLevel);

/** @return true when the library is initialised and usable. */
PALVONAUTHMANAGER_EXPORT bool IsInitialised(void);

/* ------------------------------------------------------------------------ */
/* API level 1                                                               */
/* ------------------------------------------------------------------------ */

/**
 * Creates a connection to the service.
 * @param connectionName optional name, may be null.
 * @param callback accepted but never stored or called.
 * @param context accepted but never stored.
 * @param outHandle receives the connection handle; must not be null.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_CreateConnection(const AMChar* connectionName,
                                                                     StatusChangeCallback callback,
                                                                     void* context,
                                                                     ConnectionHandle* outHandle);

/** Destroys a connection. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DestroyConnection(ConnectionHandle connection);

/** Clears every credential held for a connection. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_ClearAllCredentials(ConnectionHandle connection);

/** Cancels every call in progress on a connection. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_CancelAllCalls(ConnectionHandle connection);

/** Logs the user off everything reached through a connection. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_LogOff(ConnectionHandle connection);

/**
 * Creates a VPN authentication context for a gateway.
 * @param connection the connection.
 * @param gatewayInfo the gateway; must not be null.
 * @param flags authentication flags, passed through.
 * @param vpnAuthContextHandle receives the context handle; must not be null.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_CreateVpnAuthContext(ConnectionHandle connection,
                                                                         const AM_GATEWAY_INFO* gatewayInfo,
                                                                         AMAuthenticationFlags flags,
                                                                         VpnAuthContextHandle* vpnAuthContextHandle);

/** Destroys a VPN authentication context. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DestroyVpnAuthContext(VpnAuthContextHandle context);

/**
 * Fetches the VPN authorization of a context.
 * @param context the VPN authentication context.
 * @param vpnAuthorizationInfo receives a new record, released with
 *        PalvonAuthManager_FreeVpnAuthorizationInfo(). Written only on
 *        success; left as it was after any failure.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetVpnAuthorizationInfo(
    VpnAuthContextHandle context, AM_VPN_AUTHORIZATION_INFO** vpnAuthorizationInfo);

/** Releases a record of PalvonAuthManager_GetVpnAuthorizationInfo(); accepts null. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeVpnAuthorizationInfo(AM_VPN_AUTHORIZATION_INFO* info);

/**
 * Generates a trampoline URL for a service URL.
 * @param connection the connection.
 * @param serviceUrl the service URL; must not be null.
 * @param flags authentication flags, passed through.
 * @param optionalReferenceUrl optional reference URL, may be null.
 * @param trampolineUrl receives a new text, released with
 *        PalvonAuthManager_FreeString().
 * @param authenticationResult receives the authentication outcome.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GenerateTrampolineUrl(ConnectionHandle connection,
                                                                          const AMChar* serviceUrl,
                                                                          AMAuthenticationFlags flags,
                                                                          const AMChar* optionalReferenceUrl,
                                                                          AMChar** trampolineUrl,
                                                                          AMAuthenticationResult* authenticationResult);

/** Releases a text returned by the library; accepts null. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeString(AMChar* text);

/**
 * Asks the service for its version text.
 * @param connection the connection.
 * @param version receives a new text, released with PalvonAuthManager_FreeString().
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetVersion(ConnectionHandle connection, AMChar** version);

/** Tells the service about the application's window. The record must not be null. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetClientWindow(ConnectionHandle connection, AMWindowId window);

/**
 * Asks the service for the type of a server.
 * @param connection the connection.
 * @param serverUrl the server URL; must not be null.
 * @param outServerInfo receives a new record, released with
 *        PalvonAuthManager_FreeServerInfo().
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DetermineServerType(ConnectionHandle connection,
                                                                        const AMChar* serverUrl,
                                                                        AM_SERVER_INFO** outServerInfo);

/** Releases a record of PalvonAuthManager_DetermineServerType(); accepts null. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeServerInfo(AM_SERVER_INFO* info);

/**
 * Fetches a gateway's discovery data.
 * @param connection the connection.
 * @param gatewayInfo the gateway, all five fields sent; must not be null.
 * @param flags authentication flags, passed through.
 * @param outDiscoveryData receives a new text, released with
 *        PalvonAuthManager_FreeString().
 * @param outAuthenticationResult receives the authentication outcome.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_RetrieveGatewayDiscoveryData(
    ConnectionHandle connection, const AM_GATEWAY_INFO* gatewayInfo, AMAuthenticationFlags flags,
    AMChar** outDiscoveryData, AMAuthenticationResult* outAuthenticationResult);

/** Logs off a gateway. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_LogOffGateway(ConnectionHandle connection,
                                                                  const AM_GATEWAY_INFO* gatewayInfo);

/** Logs off an authentication service. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_LogOffAuthService(ConnectionHandle connection,
                                                                      const AMChar* authServiceUrl);

/** Asks whether the user is logged on to an authentication service. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetLogonStatus(ConnectionHandle connection,
                                                                   const AMChar* authServiceUrl,
                                                                   AMLogonStatus* outLogonStatus);

/* ------------------------------------------------------------------------ */
/* Request contexts: not implemented, every call answers                    */
/* AM_RESULT_NOT_IMPLEMENTED and writes no output.                           */
/* ------------------------------------------------------------------------ */

/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_CreateRequestContext(ConnectionHandle connection,
                                                                         const AMChar* url,
                                                                         AMAuthenticationFlags flags,
                                                                         RequestContextHandle* outContext);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DestroyContext(RequestContextHandle context);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_Prepare(RequestContextHandle context, AMChar** url,
                                                            AMAuthenticationResult* result);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetHeaders(RequestContextHandle context, AMChar*** headers);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeHeaders(AMChar** headers);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetTranslatedUrl(RequestContextHandle context, AMChar** url);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeTranslatedUrl(AMChar* url);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_Prepare2(RequestContextHandle context,
                                                             AMAuthenticationResult* result);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_ReportHttpResponse(RequestContextHandle context,
                                                                       AMHttpStatus status, AMChar** headers);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_ReportHttpFailure(RequestContextHandle context,
                                                                      AMHttpFailureReason reason);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_ForceRoute(RequestContextHandle context,
                                                               const AM_GATEWAY_INFO* gatewayInfo);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetReferenceUrl(RequestContextHandle context,
                                                                    const AMChar* url);

/* ------------------------------------------------------------------------ */
/* API level 2: every function answers AM_RESULT_NOT_IMPLEMENTED when the    */
/* service speaks only level 1.                                              */
/* ------------------------------------------------------------------------ */

/**
 * Creates an HTTP request performed by the service on a connection.
 * @param connection the connection.
 * @param outHttpHandle receives the handle (0 on failure); must not be null.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_CreateAMHttpRequest(ConnectionHandle connection,
                                                                        AMHttpHandle* outHttpHandle);
/** Sets the request method, e.g. L"GET". */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestMethod(AMHttpHandle request, const AMChar* method);
/** Sets the request URL. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestUrl(AMHttpHandle request, const AMChar* url);
/** Sets the reference URL of the request. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestReferenceUrl(AMHttpHandle request, const AMChar* url);
/** Sets the authentication flags of the request. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestAuthenticationFlags(AMHttpHandle request,
                                                                                  AMAuthenticationFlags flags);
/** Sets the request time-out in seconds. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestTimeoutSeconds(AMHttpHandle request, AMUint seconds);
/** Sets a suffix the service appends to its user agent. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestUserAgentSuffix(AMHttpHandle request,
                                                                              const AMChar* suffix);
/** Routes the request through a gateway. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestRoute(AMHttpHandle request,
                                                                    const AM_GATEWAY_INFO* gatewayInfo);
/** Adds one header line ("Name: value") to the request. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_AddRequestHeader(AMHttpHandle request, const AMChar* header);
/** Sets the request body; (null, 0) clears it. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetRequestData(AMHttpHandle request, const AMByte* data,
                                                                   AMUint numBytes);
/** Has the service perform the request and keep the response. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SendRequestAndReceiveResponse(AMHttpHandle request);
/** Reads the HTTP status code (0 on failure). */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetResponseStatusCode(AMHttpHandle request,
                                                                          AMUint* httpStatusCode);
/**
 * Reads the reason phrase.
 * @param request the HTTP request.
 * @param outReasonPhrase receives a new text (null on failure or when the
 *        service sent none), released with PalvonAuthManager_FreeString().
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetResponseReasonPhrase(AMHttpHandle request,
                                                                            AMChar** outReasonPhrase);
/**
 * Reads the response header lines ("Name: value").
 * @param request the HTTP request.
 * @param headers receives a null-terminated array of texts, released with
 *        PalvonAuthManager_FreeResponseHeaders(). Written only on success;
 *        left as it was after any failure.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetResponseHeaders(AMHttpHandle request, AMChar*** headers);
/** Releases an array of PalvonAuthManager_GetResponseHeaders(); accepts null; returns 0. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeResponseHeaders(AMChar** headers);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetResponseServerCertificate(AMHttpHandle request,
                                                                                 AMCertificate* certificate);
/** Reads the TLS trust-failure flags of the response (0 on failure). */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetResponseTrustFailureFlags(AMHttpHandle request,
                                                                                 AMUint* outTrustFailureFlags);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetServerCertificate(ConnectionHandle connection,
                                                                         const AMChar* url,
                                                                         AMCertificate* certificate,
                                                                         AMUint* flags);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeCertificate(AMCertificate certificate);
/** Not implemented. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DuplicateCertificate(AMCertificate certificate,
                                                                         AMCertificate* duplicate);
/**
 * Reads the next chunk of the response body; 0 bytes read marks its end.
 * @param request the HTTP request.
 * @param buffer receives at most maxNumberOfBytesToRead bytes.
 * @param maxNumberOfBytesToRead size of the buffer; a longer chunk from the
 *        service is refused with AM_RESULT_COMMUNICATION_FAILURE.
 * @param numBytesRead receives the count; must not be null.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_ReadResponseBodyStream(AMHttpHandle request, AMByte* buffer,
                                                                           AMUint maxNumberOfBytesToRead,
                                                                           AMUint* numBytesRead);
/** Releases the request in the service. */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DestroyAMHttpRequest(AMHttpHandle request);
/**
 * Hands a remote-session launch file to the service.
 * @param launchUrl location of the launch file, may be null.
 * @param args null-terminated array of UTF-8 arguments; must not be null.
 * @param status receives the launch status; must not be null.
 */
PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_LaunchRZPFile(const AMUTF8Char* launchUrl, AMUTF8Char** args,
                                                                  AMUint* status);

#ifdef __cplusplus
} /* extern "C" */
} /* namespace PalvonAuthManagerSDK */
#endif

#endif /* PALVON_AUTH_MANAGER_H */
