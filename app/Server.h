// The viewer's server: one flow held in memory, a JSON interface over the host (tools, nodes,
// inputs, presets, buttons, pictures, on-screen controls, pointer drags, undo) and the page's
// files, on a local HTTP port.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

struct ServeOptions {
    // The flow to open; empty opens a small built-in flow (a test picture and a Ripple).
    std::string flowPath;
    std::string bind = "127.0.0.1";
    // 0 takes any free port.
    int port = 8407;
    // The page's files.
    std::string webDir;
    // Files are read and written only inside this folder (default: the current folder).
    std::string root;
    // The largest request body (uploads included) accepted, in bytes.
    size_t maxBody = size_t{32} << 20;
};

class ViewerServer {
  public:
    // Opens the flow. Throws AppError.
    explicit ViewerServer(ServeOptions options);
    ~ViewerServer();
    ViewerServer(const ViewerServer&) = delete;
    ViewerServer& operator=(const ViewerServer&) = delete;

    // Binds the address; returns the port. Throws AppError when the port cannot be had.
    int Bind();
    // Serves until Stop() (from another thread). Bind() first.
    void Run();
    void Stop();
    // The address to open, as http://host:port/.
    std::string Url() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// The built-in flow that `serve` opens when given none.
const char* DefaultViewerFlow();
