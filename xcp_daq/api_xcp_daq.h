#pragma once
/// @file
/// The interface of libapi_xcp_daq.so.7, the receiving side of XCP data acquisition (ASAM MCD-1
/// XCP, DAQ mode, XCP on UDP) for one task of the Halmor system: everything but the frame queue,
/// which is in api_xcp_daq_threads.h.
///
/// Rules for all of it:
/// - One configuration per process: the global record appData. An api_xcp_daq object holds nothing
///   but the worker that it started; what one object changes, all others see.
/// - Calling order: xcp_daq_master_init; construct an object; setSpecFileName, readSpecs;
///   addMeasurement for every measurement, addComputeMethod for every conversion;
///   startWorkerThreads, enableDAQProcessing; then api_xcp_daq_push_frame for every datagram; at
///   the end disableDAQProcessing and stopWorkerThreads (in this order the frame in hand may be
///   discarded, in the other it is decoded), stoplog, and destruction of the object.
/// - Threads: api_xcp_daq_push_frame may be called from any threads at once. Everything else
///   belongs to the one thread that configures and controls, except where a comment names the
///   worker. The configuration is complete before the worker starts and stays as it is while the
///   worker runs, which reads the tables without a lock.
/// - Errors: no operation throws errors of its own; only std::bad_alloc, std::system_error (a
///   thread that cannot be started, a mutex that cannot be locked) and, from getHalVarVecPtr,
///   std::out_of_range pass through.
/// - Ownership: appData and everything in it belong to the library as long as it is loaded.
///   Descriptors and ODT entries are never freed.
/// - DAQ list numbers run from 0 to 3: spec section `@LIST1` is list 0, and byte 1 of a DAQ packet
///   is this number. Sample times are timespec values, nanoseconds 0 to 999999999, on the scale of
///   CLOCK_REALTIME once the first timestamped packet has set them.

#include "export.h"
#include "halmor_runtime.h"
#include "xcp_daq_master_init.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// DAQ lists of a process, and as many STIM lists.
constexpr std::int32_t MAX_NUMBER_DAQ_LISTS = 4;

// What the first construction of an api_xcp_daq object reserves.
constexpr std::int32_t RESERVE_MEASUREMENT_ATTR_LISTS = 300; ///< names of a list
constexpr std::int32_t RESERVE_HALMOR_VAR = 300;             ///< measurement lines of a list
constexpr std::int32_t RESERVE_MEASUREMENTS = 2000;          ///< names of all lists

/// TIMESTAMP bit of the XCP DAQ list mode.
constexpr std::uint8_t MODE_TIMESTAMP = 0x10;

// ---- records ----

/// One measurement's place in the DAQ packets of a DAQ list, with its conversion and its variable.
struct alignas(128) odt_table_entry {
    std::int32_t daqNum = 0;        ///< DAQ list, 0 to 3; byte 1 of the packet
    std::int32_t odtNum = 0;        ///< ODT within the list; byte 0 of the packet
    std::int32_t odtEntryIndex = 0; ///< position within the ODT, 0 first
    std::int32_t size = 0;          ///< bytes; 1, 2, 4 and 8 are decoded
    /// Offset of the value's first byte in a packet without timestamp. Saturates at the limits of
    /// its type, so that a table of any sizes lays out without overflow.
    std::int32_t firstByte = 0;
    std::int32_t lastByte = 0;      ///< offset of the last byte; saturates like firstByte
    std::uint8_t daqMode = 0;       ///< DAQ list mode; MODE_TIMESTAMP is looked at on entry 0
    std::int32_t byteOrder = 0;     ///< 0: bytes are reversed (most significant first on the wire)
    std::string name;               ///< of the measurement and of the Halmor variable
    std::int32_t computeInt1 = 0;   ///< stored for the caller, not used
    double factor = 0.0;            ///< of the conversion that addComputeMethod describes
    double offset = 0.0;            ///< added to raw * factor
    std::int32_t computeInt2 = 0;   ///< stored for the caller, not used
    double lowerLimit = 0.0;        ///< looked at after the upper limit
    double upperLimit = 0.0;        ///< looked at first
    DaqVariable* hostVar = nullptr; ///< null when the host has no such variable
};
static_assert(alignof(odt_table_entry) == 128);

/// What the decoder needs to know of one ODT before it looks at the entries.
struct OdtTableInfo {
    std::int64_t odtLength = 0;   ///< lastByte + 1 of the entry added last
    std::uint64_t entryCount = 0; ///< addMeasurement calls for this ODT
};

/// One measurement line of a list section of the spec file. The texts are zero-padded and have no
/// terminating zero when they fill their field.
struct alignas(128) halVarInfo {
    char varTag[16] = {};       ///< second token
    char varName[80] = {};      ///< name of the Halmor variable
    std::int32_t varOption = 0; ///< fourth token; 2 when there is none
};
static_assert(sizeof(halVarInfo) == 128 && alignof(halVarInfo) == 128);
static_assert(offsetof(halVarInfo, varTag) == 0 && offsetof(halVarInfo, varName) == 16 &&
              offsetof(halVarInfo, varOption) == 96);

/// Names of a list's measurements, in the order of the spec file.
struct MaStruct {
    std::vector<std::string> nameList; ///< one per measurement line
};

/// One DAQ list. nameList and halVarList always have the same length and order.
struct xcpDAQList {
    std::string daqName;       ///< first word of the list's header
    std::string daqResource;   ///< "DAQ" or "STIM"; empty while the list has no accepted header
    std::string triggerName;   ///< the slave's event
    MaStruct measurementAttrs; ///< names of the measurement lines
    std::vector<halVarInfo> halVarList;                ///< the measurement lines
    std::map<std::int32_t, OdtTableInfo> odtTableInfo; ///< by ODT
    std::map<std::pair<std::int32_t, std::int32_t>, odt_table_entry*> odtEntryMap; ///< ODT, index
    std::map<std::string, odt_table_entry*> odtEntryByName; ///< of one name the entry added last
    std::int64_t listNumber = 0; ///< index + 1; 0 until the first construction
};

/// The whole configuration and the run-time tables.
struct xcpDAQAppData {
    std::array<xcpDAQList, MAX_NUMBER_DAQ_LISTS> daqList;  ///< by DAQ list number
    std::array<xcpDAQList, MAX_NUMBER_DAQ_LISTS> stimList; ///< reported by number, otherwise unused
    std::string serverName;                                ///< address or host name of the slave
    std::string specFileName;                              ///< as given to setSpecFileName
    std::string registeredName;                            ///< from the spec file's `@REG_NAME`
    std::string specFilePath; ///< ends with a separator: the file name is appended as it is
    std::string a2lFileName;  ///< kept for the task
    std::string a2lFilePath;  ///< kept for the task
    std::ofstream logFile;    ///< written only while logEnabled is true; the task opens it
    /// Gets a line per measurement and conversion while the task has it open.
    std::ofstream measurementFile;
    std::ifstream specFile;                   ///< opened by setSpecFileName, never read
    std::ofstream frameDumpFile;              ///< opened by openFrameDataDump, filled by the task
    std::ifstream frameReplayFile;            ///< opened by openReadFrameData or by the task
    std::vector<std::string> measurementList; ///< room for names; the library puts none there
    std::int32_t daqCount = 0;   ///< accepted list headers since the first construction
    std::int32_t serverPort = 0; ///< UDP port of the slave
    bool logEnabled = false;     ///< set by the task
};

/// Receives one list's configuration; the caller owns it.
struct getMeasurementArgs {
    std::uint64_t userValue = 0; ///< for the caller's own use; the library never touches it
    std::string daqResource;     ///< "DAQ" or "STIM"
    std::string triggerName;     ///< the slave's event
    MaStruct measurementAttrs;   ///< names of the measurement lines
};

// ---- globals ----

/// The configuration. Guarded by XCPDAQAppData_mutex in the first construction, in every
/// destruction, in setSpecFileName, addMeasurement and stoplog; otherwise by the calling order.
XCP_DAQ_EXPORT extern xcpDAQAppData appData;
/// Guards appData as said there.
XCP_DAQ_EXPORT extern std::mutex XCPDAQAppData_mutex;

XCP_DAQ_EXPORT extern char Registered_name[50]; ///< from the spec file's `@REG_NAME`

/// Not used by the library. Defined weakly: a definition that comes earlier in the dynamic linker's
/// search order, such as the program's own, takes its place.
XCP_DAQ_EXPORT extern std::int16_t Spec_file_line_count;
/// Not used by the library, and as weak as Spec_file_line_count.
XCP_DAQ_EXPORT extern std::int16_t Override_enable;

XCP_DAQ_EXPORT extern const std::uint64_t MAX_TIME_DAQ_COUNT_VALUE; ///< 2^32 - 1
XCP_DAQ_EXPORT extern const std::uint64_t BILLION_NSEC;             ///< nanoseconds in a second
XCP_DAQ_EXPORT extern const float MILLION_NSEC; ///< nanoseconds in a millisecond

// ---- the class ----

/// The operations of the library. See the rules at the top of this file.
class XCP_DAQ_EXPORT api_xcp_daq {
  public:
    /// The first construction in the process reserves room in appData; later ones change nothing.
    /// Safe against a first construction on another thread. Throws std::bad_alloc.
    api_xcp_daq();

    /// Empties nameList, odtEntryMap and halVarList of the four DAQ lists, for every object; all
    /// else in appData stays. The worker must have been stopped.
    ~api_xcp_daq();

    api_xcp_daq(const api_xcp_daq&) = delete;
    api_xcp_daq& operator=(const api_xcp_daq&) = delete;

    static int cleanup();           ///< does nothing; 1
    static int getNumberDAQLists(); ///< 4, whatever is configured
    static int getNumberSTIMList(); ///< 4, whatever is configured

    /// Stores both texts and opens filePath + fileName as appData.specFile, which is kept open and
    /// not read. Result: whether that worked.
    bool setSpecFileName(const std::string& fileName, const std::string& filePath);

    /// Adds what the spec file holds to appData. False when the file cannot be opened or has no
    /// "@XCP_SERVER" section. Of what else may be wrong, appData.logFile gets a message for a blank
    /// "@REG_NAME" line, a missing A2L section, a header or measurement line that is too short, and
    /// a resource that is none. Without a message pass: a missing "@REG_NAME" section or one whose
    /// first line begins with "$", a server line without a port, a blank A2L line, a missing list,
    /// words that are cut (registration name 49, A2L words 255, variables 80, tags 16 characters).
    static bool readSpecs(const char* specPath);

    /// Copies one list's resource, trigger and names; an index outside 0 to 3 leaves the record
    /// alone.
    void getMeasurementInfoFromSpecs(int daqIndex, getMeasurementArgs* measurementArgs);

    /// Number of measurement lines of a list; 0 for a list outside 0 to 3.
    static int getNumOfHVars(int list);

    /// One measurement line, owned by appData and valid until the list changes. Throws
    /// std::out_of_range for a list outside 0 to 3 or an index outside the list.
    static halVarInfo* getHalVarVecPtr(int list, int index);

    /// Adds one entry at (daqNum, odtNum, odtEntryIndex) and binds it to the Halmor variable
    /// `name`. Entries of one ODT are added in index order from 0: each starts right after its
    /// predecessor, entry 0 at byte 2. A variable that the host does not have leaves the entry
    /// unbound, without a message. Ignored for a list outside 0 to 3.
    static void addMeasurement(const std::string& name, int daqNum, int odtNum, int odtEntryIndex,
                               int size, unsigned char daqMode);

    /// Sets the conversion of a measurement added before; unknown names and lists outside 0 to 3
    /// are ignored. Until then every value of the measurement is 0.
    ///
    /// With `byteOrder` 0 the raw value has its most significant byte first. A variable that is no
    /// integer gets raw * factor + offset, limited by upperLimit and after it by lowerLimit. For an
    /// integer variable, whole numbers are cut on the way, by the size of the raw value:
    /// - 1 byte: raw * factor + offset to its low 8 bits, then limited;
    /// - 2 bytes: raw * factor to its low 16 bits, plus offset, to its low 32 bits, limited as an
    ///   unsigned number, then to its low 16 bits;
    /// - 4 bytes: raw * factor + offset to its low 32 bits, limited as an unsigned number;
    /// - 8 bytes: raw * factor + offset and both limits as unsigned 64-bit numbers, limited; the
    /// low
    ///   32 bits are written.
    ///
    /// So a negative value before limiting comes out wrong at every size: raw 10, factor 1, offset
    /// -40 and limits -40 to 120 write 120, not -30. So do 200 * 2 in 1 byte (144), 40000 * 2 in 2
    /// bytes (14464), and negative limits in 2 bytes (-100 to -50 write 65486).
    static void addComputeMethod(const std::string& name, int daqNum, int computeInt1,
                                 double factor, double offset, int computeInt2, int byteOrder,
                                 double lowerLimit, double upperLimit);

    /// Decodes one DAQ packet (PID first) into host variables, stamped with the running sample
    /// time; *firstSampleTime is the time that the first timestamped packet stands for, or null.
    /// For the worker; not reentrant. A packet of an unknown list or ODT prints a line on standard
    /// output. Does not allocate.
    static void processFrame(const std::vector<std::uint8_t>& frame, timespec* firstSampleTime);

    /// Starts the one worker of the process; without effect while any object's worker runs.
    void startWorkerThreads();

    /// Ends and joins the worker that this object started, within 100 ms and one frame; frames that
    /// wait stay queued. Without effect for an object that has none.
    void stopWorkerThreads() const;

    /// Body of the worker thread.
    static void HandleFrameData();

    static void enableDAQProcessing();  ///< from now on the worker decodes frames; any thread
    static void disableDAQProcessing(); ///< from now on the worker discards them; any thread

    /// Whether the worker decodes frames; read before each.
    static std::atomic<bool> daqProcessingFlag;

    /// Writes the 22 lines of the configuration report into logFile, while logEnabled is true. Not
    /// to be called while another thread configures or calls stoplog.
    static void dumpInfo();

    /// Does nothing; 0. The task itself opens logFile and measurementFile and sets logEnabled.
    static int startlog();

    /// While logEnabled is true: writes a closing line into each of the two logs that is open and
    /// in good standing, closes it, and clears logEnabled.
    static void stoplog();

    /// Opens "/tmp/api_xcp_frame_daq_<process id>.txt" for appending as appData.frameDumpFile,
    /// unless it is open. What fills it is up to the task. Result: whether it is open.
    static bool openFrameDataDump();
    /// Always true; a close that fails sets the stream's fail flag.
    static bool closeFrameDataDump();

    /// Opens "/specs/api_xcp_frame_daq_data.txt" as appData.frameReplayFile, unless a file is open
    /// there, which is not rewound. Result: whether one is open.
    static bool openReadFrameData();

    /// Appends the bytes of the next frame of frameReplayFile to *frame; `size` is not read.
    /// Result: the number of bytes; 0 at the end of the file, when no file is open or reading has
    /// failed, and for a record without values. One thread at a time.
    static std::int64_t readFrameData(std::vector<std::uint8_t>* frame, unsigned long size);

  private:
    mutable std::thread* frameThread = nullptr; ///< owned; null while this object has no worker
};
static_assert(sizeof(api_xcp_daq) == sizeof(void*));
static_assert(sizeof(api_xcp_daq::daqProcessingFlag) == sizeof(bool));

// ---- functions ----

extern "C" {

/// Takes the payload of one UDP datagram: XCP messages end to end, each LEN and CTR (16 bits,
/// little-endian) and a packet of LEN bytes (XCP transport layer on Ethernet). Queues the DAQ
/// packets, prints a line for a service request, drops all else. `data` may be null and is not
/// kept. Any thread. Throws std::bad_alloc; the packets before it stay queued.
XCP_DAQ_EXPORT void api_xcp_daq_push_frame(const std::uint8_t* data, std::uint64_t length);

/// Binds a name to a new descriptor, stored in *var and owned by the caller, who may free it with
/// `delete static_cast<DaqVariable*>(*var)`. Result: 0; -1 null name; 46 no descriptor could be
/// made; else the status of the host's find_variable. *var is written for 0 only.
XCP_DAQ_EXPORT int HMAPI_DAQ_find_var(const char* name, void** var);

/// Advances *corrected by the progress of the slave's 32-bit nanosecond clock since *lastTimestamp,
/// across wraps, or sets it to the host's clock after a pause. A pause is one after which the
/// seconds of the host's clock are more than 3 above those of the call before, and which the wrap
/// does not account for: 3.1 s may be one, 3.999999999 s may pass for none. The first call of the
/// process, and no other, sets *corrected to *base when it finds *lastTimestamp 0 and *corrected
/// {0, 0}, unless base is null. Result: nanoseconds, the progress without the whole seconds of a
/// wrap, or the length of the pause. Not reentrant.
XCP_DAQ_EXPORT std::int64_t calculate_rollover(std::uint32_t timestamp,
                                               std::uint32_t* lastTimestamp, timespec* corrected,
                                               timespec* base);

/// Reverses, in place, 2 or 4 bytes, or each 4-byte half of 8, when byteOrder is 0. Result: 1 when
/// it did.
XCP_DAQ_EXPORT std::uint8_t swap_bytes_endiness(int size, int byteOrder, void* data);

} // extern "C"
