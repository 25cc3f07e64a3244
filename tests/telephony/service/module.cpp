// The module itself. It exports a service's sixteen entry points, and where their functions are put.
#include "telephony/service/entry_points.h"

using namespace brisolt::service;

extern "C" {

brisolt::test::EntryPoints scriptedEntryPoints;

int32_t lineInitialize(uint32_t* application, void* instance, Callback callback, const char* name,
                       uint32_t* devices) {
    return scriptedEntryPoints.initialize(application, instance, callback, name, devices);
}
int32_t lineShutdown(uint32_t application) {
    return scriptedEntryPoints.shutdown(application);
}
int32_t lineNegotiateAPIVersion(uint32_t application, uint32_t device, uint32_t low, uint32_t high,
                                uint32_t* version, ExtensionId* extension) {
    return scriptedEntryPoints.negotiateVersion(application, device, low, high, version, extension);
}
int32_t lineGetDevCapsA(uint32_t application, uint32_t device, uint32_t version, uint32_t extension,
                        DeviceCapabilities* capabilities) {
    return scriptedEntryPoints.getDeviceCapabilities(application, device, version, extension, capabilities);
}
int32_t lineOpenA(uint32_t application, uint32_t device, uint32_t* line, uint32_t version, uint32_t extension,
                  uintptr_t instance, uint32_t privileges, uint32_t media, const CallParameters* parameters) {
    return scriptedEntryPoints.open(application, device, line, version, extension, instance, privileges,
                                    media, parameters);
}
int32_t lineClose(uint32_t line) {
    return scriptedEntryPoints.close(line);
}
int32_t lineSetStatusMessages(uint32_t line, uint32_t lineStates, uint32_t addressStates) {
    return scriptedEntryPoints.setStatusMessages(line, lineStates, addressStates);
}
int32_t lineGetAddressStatusA(uint32_t line, uint32_t address, AddressStatus* status) {
    return scriptedEntryPoints.getAddressStatus(line, address, status);
}
int32_t lineGetAddressCapsA(uint32_t application, uint32_t device, uint32_t address, uint32_t version,
                            uint32_t extension, AddressCapabilities* capabilities) {
    return scriptedEntryPoints.getAddressCapabilities(application, device, address, version, extension,
                                                      capabilities);
}
int32_t lineGetIDA(uint32_t line, uint32_t address, uint32_t call, uint32_t select,
                   VariableString* identifier, const char* deviceClass) {
    return scriptedEntryPoints.getId(line, address, call, select, identifier, deviceClass);
}
int32_t lineMakeCallA(uint32_t line, uint32_t* call, const char* dialString, uint32_t country,
                      const CallParameters* parameters) {
    return scriptedEntryPoints.makeCall(line, call, dialString, country, parameters);
}
int32_t lineAnswer(uint32_t call, const char* userData, uint32_t size) {
    return scriptedEntryPoints.answer(call, userData, size);
}
int32_t lineDrop(uint32_t call, const char* userData, uint32_t size) {
    return scriptedEntryPoints.drop(call, userData, size);
}
int32_t lineDeallocateCall(uint32_t call) {
    return scriptedEntryPoints.deallocateCall(call);
}
int32_t lineGetCallStatus(uint32_t call, CallStatus* status) {
    return scriptedEntryPoints.getCallStatus(call, status);
}
int32_t lineSetDevConfigA(uint32_t device, const void* configuration, uint32_t size,
                          const char* deviceClass) {
    return scriptedEntryPoints.setDeviceConfiguration(device, configuration, size, deviceClass);
}
}
