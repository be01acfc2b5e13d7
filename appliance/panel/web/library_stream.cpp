// The streams through which libsoup reads and writes a connection: GLib classes around a Connection.
#include "appliance/panel/web/connection.h"

namespace panel {
namespace {

using Owner = std::shared_ptr<Connection>;

struct GateInput {
    GInputStream parent;
    Owner* connection;
};
struct GateInputClass {
    GInputStreamClass parent;
};
struct GateOutput {
    GOutputStream parent;
    Owner* connection;
};
struct GateOutputClass {
    GOutputStreamClass parent;
};

Connection& connectionOf(gpointer stream, GType type) {
    return type == G_TYPE_INPUT_STREAM ? **reinterpret_cast<GateInput*>(stream)->connection
                                       : **reinterpret_cast<GateOutput*>(stream)->connection;
}
Connection& ofInput(gpointer stream) {
    return connectionOf(stream, G_TYPE_INPUT_STREAM);
}
Connection& ofOutput(gpointer stream) {
    return connectionOf(stream, G_TYPE_OUTPUT_STREAM);
}

// ---- Input ---------------------------------------------------------------------------------------------------

void initInputInterface(GPollableInputStreamInterface* interface);

G_DEFINE_TYPE_WITH_CODE(GateInput, gate_input, G_TYPE_INPUT_STREAM,
                        G_IMPLEMENT_INTERFACE(G_TYPE_POLLABLE_INPUT_STREAM, initInputInterface))

gssize readInput(GInputStream* stream, void* buffer, gsize size, GCancellable* /*cancellable*/,
                 GError** error) {
    return ofInput(stream).read(static_cast<char*>(buffer), size, error);
}

gssize readPollable(GPollableInputStream* stream, void* buffer, gsize size, GError** error) {
    return ofInput(stream).read(static_cast<char*>(buffer), size, error);
}

gboolean isReadable(GPollableInputStream* stream) {
    return ofInput(stream).isReadable() ? TRUE : FALSE;
}

GSource* inputSource(GPollableInputStream* stream, GCancellable* cancellable) {
    GSource* child = ofInput(stream).readSource();
    GSource* source = g_pollable_source_new_full(stream, child, cancellable);
    g_source_unref(child);
    return source;
}

gboolean closeInput(GInputStream* stream, GCancellable* /*cancellable*/, GError** /*error*/) {
    ofInput(stream).closedByLibrary();
    return TRUE;
}

void finalizeInput(GObject* object) {
    delete reinterpret_cast<GateInput*>(object)->connection;
    G_OBJECT_CLASS(gate_input_parent_class)->finalize(object);
}

void initInputInterface(GPollableInputStreamInterface* interface) {
    interface->is_readable = isReadable;
    interface->create_source = inputSource;
    interface->read_nonblocking = readPollable;
}

void gate_input_class_init(GateInputClass* type) {
    G_OBJECT_CLASS(type)->finalize = finalizeInput;
    G_INPUT_STREAM_CLASS(type)->read_fn = readInput;
    G_INPUT_STREAM_CLASS(type)->close_fn = closeInput;
}

void gate_input_init(GateInput* stream) {
    stream->connection = nullptr;
}

// ---- Output --------------------------------------------------------------------------------------------------

void initOutputInterface(GPollableOutputStreamInterface* interface);

G_DEFINE_TYPE_WITH_CODE(GateOutput, gate_output, G_TYPE_OUTPUT_STREAM,
                        G_IMPLEMENT_INTERFACE(G_TYPE_POLLABLE_OUTPUT_STREAM, initOutputInterface))

GPollableOutputStream* rawOutput(gpointer stream) {
    return G_POLLABLE_OUTPUT_STREAM(g_io_stream_get_output_stream(ofOutput(stream).stream()));
}

gssize writeOutput(GOutputStream* stream, const void* data, gsize size, GCancellable* /*cancellable*/,
                   GError** error) {
    return ofOutput(stream).write(static_cast<const char*>(data), size, error);
}

gssize writePollable(GPollableOutputStream* stream, const void* data, gsize size, GError** error) {
    return ofOutput(stream).write(static_cast<const char*>(data), size, error);
}

gboolean isWritable(GPollableOutputStream* stream) {
    return g_pollable_output_stream_is_writable(rawOutput(stream));
}

GSource* outputSource(GPollableOutputStream* stream, GCancellable* cancellable) {
    GSource* child = g_pollable_output_stream_create_source(rawOutput(stream), nullptr);
    GSource* source = g_pollable_source_new_full(stream, child, cancellable);
    g_source_unref(child);
    return source;
}

gboolean closeOutput(GOutputStream* /*stream*/, GCancellable* /*cancellable*/, GError** /*error*/) {
    return TRUE;
}

void finalizeOutput(GObject* object) {
    delete reinterpret_cast<GateOutput*>(object)->connection;
    G_OBJECT_CLASS(gate_output_parent_class)->finalize(object);
}

void initOutputInterface(GPollableOutputStreamInterface* interface) {
    interface->is_writable = isWritable;
    interface->create_source = outputSource;
    interface->write_nonblocking = writePollable;
}

void gate_output_class_init(GateOutputClass* type) {
    G_OBJECT_CLASS(type)->finalize = finalizeOutput;
    G_OUTPUT_STREAM_CLASS(type)->write_fn = writeOutput;
    G_OUTPUT_STREAM_CLASS(type)->close_fn = closeOutput;
}

void gate_output_init(GateOutput* stream) {
    stream->connection = nullptr;
}

} // namespace

GObjectPointer<GIOStream> libraryStream(const std::shared_ptr<Connection>& connection) {
    auto* input = static_cast<GateInput*>(g_object_new(gate_input_get_type(), nullptr));
    auto* output = static_cast<GateOutput*>(g_object_new(gate_output_get_type(), nullptr));
    input->connection = new Owner(connection);
    output->connection = new Owner(connection);
    const GObjectPointer<GInputStream> in(G_INPUT_STREAM(input));
    const GObjectPointer<GOutputStream> out(G_OUTPUT_STREAM(output));
    return GObjectPointer<GIOStream>(g_simple_io_stream_new(in.get(), out.get()));
}

} // namespace panel
