// Cameras: enumeration, node maps, streams, events.
//
// Objects are made and owned by the library; callers hold plain pointers, never delete them, and call Release where an
// object has it. Text results are zero-terminated UTF-8, owned by the library, and valid until the same operation is
// called on the same object again or the object goes.
//
// Status: signed 32 bits, 0 for success, negative values as TovCamError. An error pointer may be null; a call that
// succeeds stores 0 through it.
#pragma once

#include "tovimage.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#if defined(TovCameraApi_EXPORTS)
#define TOV_CAMERA_API __attribute__((visibility("default")))
#else
#define TOV_CAMERA_API
#endif

enum TovCamError : std::int32_t {
    TOV_CAM_ERR_OK = 0,
    TOV_CAM_ERR_UNKNOWN = -40001,
    TOV_CAM_ERR_FILE_NOT_FOUND = -40002,
    TOV_CAM_ERR_FILE_READ = -40003,
    TOV_CAM_ERR_WRONG_CONFIGURATION = -40004,
    TOV_CAM_ERR_INVALID_INDEX = -40005,
    TOV_CAM_ERR_NO_DEVICE = -40006,
    TOV_CAM_ERR_INVALID_ARGUMENT = -40007,
    TOV_CAM_ERR_INVALID_STATE = -40051,
    TOV_CAM_ERR_FLASH_ERASE = -40101,
    TOV_CAM_ERR_GENICAM_GENERIC = -40200,
    TOV_CAM_ERR_GENICAM_TREE = -40201,
    TOV_CAM_ERR_GENICAM_ACCESS = -40202,
    TOV_CAM_ERR_GENICAM_PARAM_TYPE = -40203,
    TOV_CAM_ERR_GENICAM_OUT_OF_RANGE = -40204,
    TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM = -40205,
    TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT = -40206,
};

namespace TovCam {

enum InterfaceKind : std::uint32_t { InterfaceKindUSB3Vision = 1, InterfaceKindGigEVision = 2 };

enum EventID : std::uint32_t {
    EventControlChannel = 1000, // raw control packets
    EventStreamChannel = 1001,  // raw stream packets
    EventEventChannel = 1002,   // raw event packets
    EventConnectionLost = 1004, // no data
    EventPacketsMissed = 1005,  // std::uint64_t: packets of the three channels that were lost on the way to the
                                // callbacks, or cut short by a capture, since the camera was opened; sent when the
                                // number has risen
};

constexpr std::uint32_t WaitForever = 0xFFFFFFFFu;

class Interface;
class DeviceInfo;
class Device;
struct FrameLosses; // tovlosses.h
struct StreamLosses;

// One node of a camera. GetInt, GetString and GetEnum of ParamArray give the typed forms.
class Param
{
public:
    virtual char const *GetName() = 0;

protected:
    ~Param() = default;
};

class IntParam : public Param
{
public:
    virtual std::int64_t GetValue(std::int32_t *error) = 0;
    virtual std::int64_t GetMin(std::int32_t *error) = 0;
    virtual std::int64_t GetMax(std::int32_t *error) = 0;

protected:
    ~IntParam() = default;
};

class StringParam : public Param
{
public:
    virtual char const *GetValue(std::int32_t *error) = 0; // never null; "" on failure

protected:
    ~StringParam() = default;
};

class EnumParam : public Param
{
public:
    virtual char const *GetValueStr(std::int32_t *error) = 0; // never null; "" on failure

protected:
    ~EnumParam() = default;
};

// ---- The feature tree: for libTovCameraGuiApi and configuration files ----

enum class FeatureKind : std::uint8_t { Category, Integer, Float, Boolean, Enumeration, String, Command, Register };
enum class FeatureAccess : std::uint8_t { NotImplemented, NotAvailable, WriteOnly, ReadOnly, ReadWrite };
enum class FeatureVisibility : std::uint8_t { Beginner, Expert, Guru, Invisible };
enum class FeatureRepresentation : std::uint8_t { Linear, Logarithmic, Boolean, PureNumber, HexNumber, IPV4, MAC };
enum class FeatureNotation : std::uint8_t { Automatic, Fixed, Scientific };

// One entry of an enumeration, as the description has it.
struct FeatureEntry
{
    std::string name;
    std::string displayName; // the name where the description has none
    std::string toolTip;
    std::int64_t value = 0;
    FeatureVisibility visibility = FeatureVisibility::Beginner;
};

// What a feature is, for as long as the camera is open. Features are identified by their index; index 0 is the root
// category.
struct FeatureInfo
{
    std::string name;
    std::string displayName; // the name where the description has none
    std::string toolTip;
    std::string description;
    std::string unit;
    FeatureKind kind = FeatureKind::Category;
    FeatureVisibility visibility = FeatureVisibility::Beginner;
    FeatureRepresentation representation = FeatureRepresentation::PureNumber;
    FeatureNotation notation = FeatureNotation::Automatic; // Float
    std::int32_t precision = -1;                           // Float: digits to show, -1 where the description has none
    std::uint32_t pollingTime = 0;                         // milliseconds, 0: need not be read again by itself
    bool streamable = false;                               // belongs in a stored configuration
    std::vector<std::uint32_t> children;                   // of a category, in the order of the description
    std::vector<std::uint32_t> selected;                   // of a selector: what it selects
    std::vector<std::uint32_t> dependents; // to be read again after a write of this one, the selected ones included
    std::vector<FeatureEntry> entries;     // of an enumeration, in the order of the description
};

struct FeatureValue
{
    std::int64_t integer = 0; // Integer, Enumeration; Boolean as 0 and 1
    double real = 0.0;        // Float
    std::string text;         // String; the entry's name of an Enumeration; the bytes of a Register
};

// A setting whose value in the camera is not the one in the configuration file. Texts as in the file, UTF-8.
struct RefusedSetting
{
    std::string feature;
    std::string selectors;     // "GainSelector=DigitalAll", several separated by blanks; empty without any
    std::string wanted;        // by the file
    std::string present;       // in the camera; empty where it is not known
    std::int32_t status = 0;   // why; 0: taken without an error, but not kept
    bool streamLocked = false; // refused only because frames run
};

// What came of a configuration file, beyond the status.
struct ConfigurationReport
{
    enum class Problem : std::uint8_t {
        None,
        File,            // could not be read or written; `systemError` says why
        NoConfiguration, // not a camera's configuration, or of an unknown version
        NotWhole,        // a part is missing
        NoValue,         // the value in `refused` does not fit its feature
        OtherCamera,     // made by another model, `vendor`'s `model`
        NoCamera,        // no camera of `model` was found
        CameraInUse,     // by this or another program
        NotKept,         // the file of another camera could not be put aside; `systemError`
        Selector,        // the one in `refused` does not take its value
    };
    std::int32_t status = 0; // of the operation
    Problem problem = Problem::None;
    int systemError = 0; // an errno
    // The camera that made the file; after a save, the other camera whose file was there before.
    std::string vendor, model, serial;
    std::string keptAs;                  // where that file is now; empty when there was none
    std::size_t settings = 0;            // that were compared with the camera's
    std::vector<RefusedSetting> refused; // empty with TOV_CAM_ERR_NO_DEVICE
};

// What a feature is at this moment.
struct FeatureState
{
    FeatureAccess access = FeatureAccess::NotImplemented;
    FeatureValue value;           // left empty unless readable
    std::int32_t valueStatus = 0; // of reading the value
    std::int64_t minimum = 0;     // Integer
    std::int64_t maximum = 0;
    std::int64_t increment = 1;
    double realMinimum = 0.0; // Float
    double realMaximum = 0.0;
    double realIncrement = 0.0;           // 0: none
    std::uint64_t length = 0;             // String: most bytes it takes, 0 unknown; Register: its bytes
    std::vector<std::uint32_t> available; // Enumeration: indices of the entries that can be chosen now
    bool streamLocked = false;            // could be written if no frames ran
    // By the configuration file that was loaded last, until the feature is written.
    std::vector<RefusedSetting> refused;
};

// A node map. Any thread; calls take the device's lock, and a slow camera makes them slow.
class ParamArray
{
public:
    // Null with TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM when the camera has no such node, null with
    // TOV_CAM_ERR_GENICAM_PARAM_TYPE when it is of another type.
    virtual EnumParam *GetEnum(char const *name, std::int32_t *error) = 0;
    virtual IntParam *GetInt(char const *name, std::int32_t *error) = 0;
    virtual StringParam *GetString(char const *name, std::int32_t *error) = 0;
    // Null on failure.
    virtual char const *GetEnumValueStr(char const *name, std::int32_t *error) = 0;
    virtual std::int32_t SetIntegerValue(char const *name, std::int64_t value) = 0;
    virtual std::int64_t GetIntegerValue(char const *name, std::int32_t *error) = 0; // 0 on failure
    virtual std::int32_t ExecuteCommand(char const *name) = 0;

    // ---- For tests and the GUI-side libraries ----
    virtual std::int32_t SetEnumValueStr(char const *name, char const *value) = 0;
    virtual std::int32_t SetFloatValue(char const *name, double value) = 0;
    virtual double GetFloatValue(char const *name, std::int32_t *error) = 0;
    virtual std::int32_t SetBooleanValue(char const *name, bool value) = 0;
    virtual std::int32_t SetStringValue(char const *name, char const *value) = 0;

    // ---- The feature tree: for libTovCameraGuiApi ----
    // Features reached from the root category, each counted once; 0 when there is no tree. Touches no register.
    virtual std::uint32_t GetFeatureCount()
    {
        return 0;
    }
    virtual FeatureInfo const *GetFeature(std::uint32_t)
    {
        return nullptr;
    } // null past the last
    // Reads the camera once for all of it. A feature that cannot be read keeps access NotAvailable.
    virtual std::int32_t ReadFeature(std::uint32_t, FeatureState *)
    {
        return TOV_CAM_ERR_INVALID_INDEX;
    }
    // Writes a value of the feature's kind; for an Enumeration `text` where it is set, else `integer`. Runs a Command.
    virtual std::int32_t WriteFeature(std::uint32_t, FeatureValue const &)
    {
        return TOV_CAM_ERR_INVALID_INDEX;
    }
    virtual std::int32_t IsCommandDone(std::uint32_t, bool *)
    {
        return TOV_CAM_ERR_INVALID_INDEX;
    }
    // Keeps this object, and nothing else, beyond the device's Release: later calls fail at once, and one under way
    // ends in its own time without holding up Release.
    virtual std::shared_ptr<void> Hold()
    {
        return {};
    }

protected:
    ~ParamArray() = default;
};

// What is known of a frame beside its picture.
struct FrameFacts
{
    // Of its first packet, by this computer's clock: nanoseconds since 1970, UTC; 0: not known.
    std::int64_t arrival = 0;
    // As the frame itself tells; not a number where it does not.
    double exposure = std::numeric_limits<double>::quiet_NaN(); // microseconds
    double gain = std::numeric_limits<double>::quiet_NaN();     // in the camera's unit
    std::uint64_t missingBytes = 0;                             // of an incomplete one; 0: not known
};

// A frame. Valid from GetBuffer until QueueBuffer; one thread at a time.
class Buffer
{
public:
    virtual _TovImage *GetImage() = 0;
    virtual std::uint64_t GetBufferSize() = 0; // payload bytes of this frame
    virtual std::uint64_t GetTimestamp() = 0;  // ticks of "GevTimestampTickFrequency"
    virtual std::uint64_t GetFrameID() = 0;    // rises by one per frame at the camera
    virtual bool IsIncomplete() = 0;           // packets were lost
    // False where nothing is known.
    virtual bool GetFacts(FrameFacts *)
    {
        return false;
    }
    // The same.
    virtual bool GetLosses(FrameLosses *)
    {
        return false;
    }

protected:
    ~Buffer() = default;
};

// The frames of one camera. GetBuffer from one thread; QueueBuffer and CancelGetBuffer from any; the rest from the
// thread that controls the acquisition.
class Stream
{
public:
    // After it the buffer and its image must not be touched.
    virtual std::int32_t QueueBuffer(Buffer *buffer) = 0;
    // Blocks until a filled buffer is there, `timeout` milliseconds pass (WaitForever: never), or CancelGetBuffer wakes
    // it. Null with 0 when nothing came. May return a buffer together with a nonzero error.
    virtual Buffer *GetBuffer(std::uint32_t timeout, std::int32_t *error) = 0;
    // GetBuffer returns within 20 ms. Remembered when nobody waits: the next one returns at once. StartAcquisition
    // forgets it.
    virtual void CancelGetBuffer() = 0;
    // `frames` -1 is endless; flags 0. After AllocBufferQueue.
    virtual std::int32_t StartAcquisition(std::int64_t frames, std::uint32_t flags) = 0;
    // Host side only; pending buffers stay with the stream. Harmless when not started.
    virtual std::int32_t StopAcquisition(std::uint32_t flags) = 0;
    // Creates and announces `count` buffers for the current image format.
    virtual std::int32_t AllocBufferQueue(void *context, std::uint32_t count) = 0;
    // After every buffer was given back.
    virtual std::int32_t ReleaseBufferQueue() = 0;
    // False where nothing is known. Asks the system, which takes some 20 microseconds. Any thread.
    virtual bool GetLosses(StreamLosses *)
    {
        return false;
    }

protected:
    ~Stream() = default;
};

// Called on a thread of the library; the bytes are valid during the call only.
using EventCallback = void (*)(void const *data, unsigned long size, void *user);

// Why the packets of a camera cannot be captured, for the operator to mend.
enum class CaptureRefusal : std::uint8_t {
    None,
    NoRight,    // the system does not permit it
    NoAdapter,  // there is no such network adapter, or it is down; no such USB monitor
    NoFile,     // the capture file that takes the camera's place cannot be opened
    NotACapture // not a capture, or not one of a camera
};
struct CaptureFailure
{
    CaptureRefusal refusal = CaptureRefusal::None;
    std::string place;  // the adapter, the monitor or the file that was tried; empty where there was none to try
    std::string reason; // in the system's words; may be empty
};

// An open camera.
class Device
{
public:
    // Closes the camera; the last call on it. Events end before it returns.
    virtual void Release() = 0;
    virtual Stream *GetStreamByIndex(std::uint32_t index) = 0; // null past the last
    virtual DeviceInfo *GetDeviceInfo() = 0;
    // For the packets of a real camera TOV_CAM_ERR_GENICAM_ACCESS without the right to capture, TOV_CAM_ERR_NO_DEVICE
    // where the system offers nothing to capture from.
    virtual std::int32_t RegisterEvent(std::uint32_t id, EventCallback callback, void *user) = 0;
    // No callback of the subscription runs any more when it returns, unless it is called from that very callback.
    virtual std::int32_t UnregisterEvent(std::uint32_t id, EventCallback callback, void *user) = 0;
    virtual ParamArray *GetCameraParameters(std::int32_t *error) = 0; // null on failure; cheap
    virtual std::int32_t ReadRegister(std::uint64_t address, void *buffer, std::size_t size) = 0;
    // A configuration file: who the camera is, and its settings. Both take as long as the accesses they need, hundreds
    // of them, and hold the node map that long. Saving leaves the old file alone when it fails:
    // TOV_CAM_ERR_FILE_NOT_FOUND where no file can be written, TOV_CAM_ERR_GENICAM_GENERIC for a camera that refuses. A
    // file that another camera (by vendor, model or serial number) has saved stays beside the new one, under its name
    // with a tilde appended; so does one that names no camera.
    virtual std::int32_t SaveConfiguration(char const *path) = 0;
    // 0 when every setting of the file that the camera has is as in the file. With TOV_CAM_ERR_FILE_NOT_FOUND,
    // TOV_CAM_ERR_FILE_READ and TOV_CAM_ERR_WRONG_CONFIGURATION (no whole configuration, or another model's) nothing
    // was touched; with any other status what could be applied is applied.
    virtual std::int32_t LoadConfiguration(char const *path) = 0;
    // Why the last subscription to packets was refused, if it was. Any thread.
    virtual CaptureFailure GetCaptureFailure()
    {
        return {};
    }
    // Of the one of these two that ended last. Any thread.
    virtual ConfigurationReport GetConfigurationReport()
    {
        return {};
    }
    // For how many milliseconds the camera has answered nothing that it was asked, counted from its last answer; 0
    // while it answers, and where nobody can tell. Any thread; waits for nothing.
    virtual std::uint64_t GetSilence()
    {
        return 0;
    }
    // Whoever waits for the camera may give up: while the flag is set, what any thread has under way ends within half a
    // second where the transport can be interrupted, the taking or applying of a configuration with its selectors put
    // back; later accesses fail. The status is TOV_CAM_ERR_NO_DEVICE. Once, by the thread that opened the device.
    virtual void SetGiveUp(std::shared_ptr<std::atomic<bool> const> const & /*givenUp*/)
    {
    }

protected:
    ~Device() = default;
};

// The opening of a camera, for whoever waits for it: TovCam_CreateDevice may take as long as the camera and the network
// let it, a minute at most. One object an opening; any thread.
struct OpenProgress
{
    enum class Stage : std::uint8_t {
        Waiting,     // not begun
        Asking,      // whether the camera is there, and free
        Description, // is downloaded, `bytes` of `total`
        Preparing,   // its features are made
        Over         // opened or not
    };
    std::atomic<Stage> stage{Stage::Waiting};
    std::atomic<std::uint64_t> bytes{0}, total{0};
    std::atomic<bool> overdue{false}; // given up, for it took too long
    // Set by whoever waits: TovCam_CreateDevice returns null soon.
    std::atomic<bool> cancel{false};
};

// Why a camera cannot be opened, for the operator to mend.
enum class OpenRefusal : std::uint8_t {
    None,
    NoAnswer,    // the camera that was seen does not answer; `reason` where another one has its place
    InUse,       // `place`: the address of the host that has control, where the camera tells
    Description, // it answers, but its description cannot be used: `reason`
    NoRight      // the system does not permit to open the device `place`: `reason`
};
struct OpenFailure
{
    OpenRefusal refusal = OpenRefusal::None;
    bool isOurs = false; // InUse: by this very program
    std::string place;
    std::string reason; // in a few words of the library or the system
    bool operator==(OpenFailure const &) const = default;
};

// Where a GigE Vision camera is on the network, as the last search found it. Addresses are numbers, the first part in
// the highest byte; 0: not known, and so for cameras of other kinds.
struct NetworkPlace
{
    std::uint32_t address = 0; // where it answers from
    std::uint32_t mask = 0, gateway = 0;
    std::uint64_t mac = 0;
    std::string adapter; // of this host, that heard it; empty for one beyond a router, and where it is not known
    // Beside the adapter, but in none of its subnets: seen, and out of reach until one of the two has another address.
    bool isForeign = false;
    bool operator==(NetworkPlace const &) const = default;
};

// A camera that was seen. Lives as long as the system.
class DeviceInfo
{
public:
    virtual Interface *GetInterface() = 0;
    virtual char const *GetDisplayName() = 0;
    virtual char const *GetHostInformation() = 0; // null when there is none

    // ---- For the selector dialog ----
    enum AccessStatus { AccessUnknown, AccessFree, AccessBusy };
    virtual char const *GetVendorName() = 0;
    virtual char const *GetModelName() = 0;
    virtual char const *GetSerialNumber() = 0;
    virtual char const *GetUserID() = 0;
    virtual char const *GetAddress() = 0; // IP address or USB identity, "" when there is none
    virtual AccessStatus GetAccessStatus() = 0;

    // Openings from now on are followed by that object, which outlives them; null: by none. Before the opening.
    virtual void SetOpenProgress(OpenProgress *)
    {
    }
    // Any thread.
    virtual NetworkPlace GetNetworkPlace()
    {
        return {};
    }
    // As the last opening and the last search know it. Any thread.
    virtual OpenFailure GetOpenFailure()
    {
        return {};
    }

protected:
    ~DeviceInfo() = default;
};

// One way to reach cameras: a transport of the host, or the simulator.
class Interface
{
public:
    virtual DeviceInfo *GetFirstDeviceInfo() = 0; // null when no camera is seen
    virtual std::uint32_t GetInterfaceKind() = 0; // InterfaceKind; other values have no protocol decoder
    virtual char const *GetInterfaceDescription() = 0;
    virtual char const *GetDriverVersion() = 0;
    virtual ParamArray *GetInterfaceParameters(std::int32_t *error) = 0; // null when there are none

    // ---- For the selector dialog: the cameras seen at the last UpdateDeviceList ----
    virtual std::uint32_t GetDeviceCount() = 0;
    virtual DeviceInfo *GetDeviceInfoByIndex(std::uint32_t index) = 0; // null past the last

protected:
    ~Interface() = default;
};

class ObjectList
{
public:
    virtual Interface *GetFirst() = 0;
    virtual Interface *GetNext() = 0; // null past the last

protected:
    ~ObjectList() = default;
};

// The root of the library.
class System
{
public:
    virtual void Release() = 0;
    // `kindMask` has bit InterfaceKind - 1 for each kind asked for; 255 is every kind. Looks for cameras if that has
    // not been done yet. The list is valid until the next call.
    virtual ObjectList *GetInterfaceList(std::uint32_t kindMask) = 0;
    // Finds the file's camera by its serial number, else by its model, opens it and loads the file. A device together
    // with a nonzero error is open, with what could be applied.
    virtual Device *OpenDeviceFromConfiguration(char const *path, std::int32_t *error) = 0;
    virtual std::int32_t LoadTransportLayer(char const *file) = 0;

    // ---- For the selector dialog ----
    // Looks for cameras on every interface. Takes about a second; any thread, one at a time.
    virtual std::int32_t UpdateDeviceList() = 0;
    // Asks the one address (a GigE Vision camera's IP) and adds it to its interface's list; null when nobody answers.
    virtual DeviceInfo *FindDeviceByAddress(char const *address, std::int32_t *error) = 0;

    // Of the last OpenDeviceFromConfiguration. Any thread.
    virtual ConfigurationReport GetConfigurationReport()
    {
        return {};
    }
    // As DeviceInfo's, for OpenDeviceFromConfiguration: for the opening and the loading.
    virtual void SetOpenProgress(OpenProgress *)
    {
    }
    // Of the camera that the last OpenDeviceFromConfiguration has found. Any thread.
    virtual OpenFailure GetOpenFailure()
    {
        return {};
    }

protected:
    ~System() = default;
};

} // namespace TovCam

// The library's only system, or null when it cannot start. Each call is paired with a System::Release.
TOV_CAMERA_API TovCam::System *TovCam_GetSystem();

// Opens a camera for full control. `mode` is 2; null on failure.
TOV_CAMERA_API TovCam::Device *TovCam_CreateDevice(TovCam::DeviceInfo *info, std::uint32_t mode, std::int32_t *error);
