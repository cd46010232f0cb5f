#pragma once

/* The debug logs, one or more per monitor. Several monitors deliberately write
 * some of their lines into another's file. */
#define DEBUG_LOG_FOLDER "/Vdbglog/.velolog/"
inline constexpr const char *kLogMain = DEBUG_LOG_FOLDER ".velomond.log";
inline constexpr const char *kLogTimeChange = DEBUG_LOG_FOLDER ".velomond_timechg.log";
inline constexpr const char *kLogCpu = DEBUG_LOG_FOLDER ".velomond_cpu.log";
inline constexpr const char *kLogCamConn = DEBUG_LOG_FOLDER ".velomond_camconn.log";
inline constexpr const char *kLogServerName = DEBUG_LOG_FOLDER ".velomond_servername.log";
inline constexpr const char *kLogVolume = DEBUG_LOG_FOLDER ".velomond_vol.log";
inline constexpr const char *kLogSmart = DEBUG_LOG_FOLDER ".velomond_smart.log";
inline constexpr const char *kLogSysHealth = DEBUG_LOG_FOLDER ".velomond_syshealth.log";
inline constexpr const char *kLogRecState = DEBUG_LOG_FOLDER ".velomond_recstate.log";
inline constexpr const char *kLogReverseProxy = DEBUG_LOG_FOLDER ".velomond_reverse_proxy.log";
inline constexpr const char *kLogCmv = DEBUG_LOG_FOLDER ".velomond_cmv.log";

/* Appends a text of at most 2047 characters to a debug log, exactly as
 * formatted: neither a line feed nor a time stamp is added. A file that has
 * grown above 2,095,104 bytes first becomes "<path>_bak", replacing an older
 * one. What cannot be written is dropped. No file stays open in between, so it
 * may be moved or deleted at any time. Any thread may call. */
void log_File_Debug(const char *path, const char *format, ...) __attribute__((format(printf, 2, 3)));
