#include "app/Cli.h"

#include <unistd.h>

#include <CLI/CLI.hpp>

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <regex>
#include <sstream>
#include <thread>

#include "app/AppError.h"
#include "app/Controls.h"
#include "app/Describe.h"
#include "app/Flow.h"
#include "app/Limits.h"
#include "app/Numbers.h"
#include "app/Server.h"
#include "host/App.h"
#include "host/Registration.h"

using nlohmann::json;

namespace {

struct FrameRange {
    bool given = false;
    int first = 1, last = 1;
};

FrameRange ParseFrames(const std::string& text, const std::string& option) {
    static const std::regex pattern(R"(^\s*(-?\d+)\s*(?:-\s*(-?\d+)\s*)?$)");
    std::smatch m;
    if (!std::regex_match(text, m, pattern))
        throw AppError(option + " '" + text + "' is not a frame or a range A-B");
    FrameRange r;
    r.given = true;
    r.first = static_cast<int>(ParseWhole(m[1].str(), -kFrameLimit, kFrameLimit, option));
    r.last = m[2].matched
                 ? static_cast<int>(ParseWhole(m[2].str(), -kFrameLimit, kFrameLimit, option))
                 : r.first;
    if (r.last < r.first) throw AppError(option + " '" + text + "' ends before it starts");
    return r;
}

// A --set value: a number, "x,y" (a point, or a colour with three or four parts), 0/1 or
// true/false, or text (a combo entry).
json ParseValue(const std::string& text, const std::string& option) {
    // Anything that has the shape of a number is one, and must fit.
    auto number = [&](const std::string& s, double* out) {
        const NumberRead r = ReadReal(s, out);
        if (r == NumberRead::OutOfRange)
            throw AppError(option + " '" + text + "': '" + s + "' is out of range");
        return r == NumberRead::Ok;
    };
    double d = 0.0;
    if (number(text, &d)) return d;
    if (text == "true" || text == "on") return true;
    if (text == "false" || text == "off") return false;
    if (text.find(',') != std::string::npos) {
        json list = json::array();
        std::stringstream parts(text);
        std::string part;
        bool all = true;
        while (std::getline(parts, part, ',')) {
            if (!number(part, &d)) all = false;
            list.push_back(d);
        }
        if (all) return list;
    }
    return text;
}

std::pair<std::string, std::string> SplitAssignment(const std::string& text,
                                                    const std::string& option) {
    size_t eq = text.find('=');
    if (eq == std::string::npos || eq == 0)
        throw AppError(option + " '" + text + "' is not of the form NAME=VALUE");
    return {text.substr(0, eq), text.substr(eq + 1)};
}

std::pair<int, int> ParseSize(const std::string& text) {
    static const std::regex sizePattern(R"(^(\d{1,5})[xX](\d{1,5})$)");
    std::smatch m;
    if (!std::regex_match(text, m, sizePattern))
        throw AppError("--size '" + text + "' is not of the form WxH");
    const int64_t w = ParseWhole(m[1].str(), 0, 99999, "--size");
    const int64_t h = ParseWhole(m[2].str(), 0, 99999, "--size");
    if (w < 1 || h < 1 || w > 32768 || h > 32768)
        throw AppError("--size '" + text + "' must be from 1x1 to 32768x32768");
    CheckPixelCount(w, h, "--size '" + text + "'");
    return {static_cast<int>(w), static_cast<int>(h)};
}

// Progress on a terminal: frame i of N, frames per second, time left.
class ProgressLine {
  public:
    ProgressLine(std::ostream& err, bool show) : err_(err), show_(show) {
        start_ = std::chrono::steady_clock::now();
    }
    void operator()(int done, int total) {
        if (!show_) return;
        double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
        double fps = seconds > 0 ? done / seconds : 0.0;
        int left = fps > 0 ? static_cast<int>(std::ceil((total - done) / fps)) : 0;
        err_ << "\rframe " << done << " of " << total << "  " << std::fixed
             << std::setprecision(fps < 10 ? 2 : 1) << fps << " fps  " << left / 60 << ":"
             << std::setw(2) << std::setfill('0') << left % 60 << " left" << std::setfill(' ')
             << "   " << std::flush;
        if (done == total) err_ << "\n";
        shown_ = done < total;
    }
    bool Shown() const { return shown_; }

  private:
    std::ostream& err_;
    bool show_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point start_;
};

// A message on one line: the libraries' own explanations may run over several.
std::string OneLine(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at))
        text.replace(at, 1, "; ");
    return text;
}

bool IsTerminal(std::ostream& err) {
    return &err == &std::cerr && ::isatty(2);
}

int RenderFlow(Flow& flow, FrameRange frames, bool fromStart, bool quiet, std::ostream& out,
               std::ostream& err) {
    if (!frames.given) {
        frames.first = static_cast<int>(flow.Start());
        frames.last = static_cast<int>(flow.End());
    }
    ProgressLine progress(err, !quiet && IsTerminal(err));
    try {
        // Tools that keep state between renders see the frames before the first one asked for,
        // which are rendered and not written.
        if (fromStart && flow.Start() < frames.first) {
            if (!quiet && IsTerminal(err))
                err << "running up frames " << flow.Start() << " to " << frames.first - 1 << "\n";
            flow.Advance(static_cast<int>(flow.Start()), frames.first - 1);
        }
        flow.Render(frames.first, frames.last, std::ref(progress));
    } catch (const Interrupted& e) {
        if (progress.Shown()) err << "\n";
        err << "crate07: " << e.what() << "; " << flow.Written().size()
            << " file(s) written before it are kept\n";
        return kExitInterrupted;
    } catch (const AppError& e) {
        if (progress.Shown()) err << "\n";
        if (flow.Written().empty()) throw;
        throw AppError(std::string(e.what()) + "; the " + std::to_string(flow.Written().size()) +
                       " file(s) written before it are kept");
    }
    if (!quiet) {
        out << "wrote " << flow.Written().size() << " file(s)";
        if (!flow.Written().empty())
            out << ": " << flow.Written().front()
                << (flow.Written().size() > 1 ? " .. " + flow.Written().back() : "");
        out << "\n";
    }
    return 0;
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
    return RunCommandLine(argc, argv, std::cout, std::cerr);
}

int RunCommandLine(int argc, char** argv, std::ostream& out, std::ostream& err) {
    RegisterPackTools();
    GetApp()->interrupted.store(false);

    CLI::App app{"crate07: renders the Crate 07 image-effect tools"};
    app.require_subcommand(1);
    int threads = 0;
    app.add_option("--threads", threads, "processors the image operators split over")
        ->check(CLI::Range(1, 256));
    std::string maxPixelsText;
    const std::string maxPixelsHelp =
        "the most pixels an image may hold (default " + std::to_string(kDefaultMaxPixels) + ")";
    app.add_option("--max-pixels", maxPixelsText, maxPixelsHelp);

    auto* tools = app.add_subcommand("tools",
                                     "list the tools: registered name, short name, "
                                     "description");

    auto* describe = app.add_subcommand("describe", "pages, inputs, images and presets of a tool");
    std::string describeTool;
    bool describeJson = false;
    describe->add_option("TOOL", describeTool, "registered or plain name, any case")->required();
    describe->add_flag("--json", describeJson, "as JSON");

    auto* render = app.add_subcommand("render", "render a flow file");
    std::string flowPath, framesText;
    bool quiet = false;
    render->add_option("FLOW", flowPath, "the flow file (JSON)")->required();
    render->add_option("--frames", framesText, "frames A-B (default: the flow's range)");
    render->add_option("--threads", threads, "processors the image operators split over")
        ->check(CLI::Range(1, 256));
    render->add_flag("-q,--quiet", quiet, "no progress and no summary");
    render->add_option("--max-pixels", maxPixelsText, maxPixelsHelp);
    bool fromStart = false;
    render->add_flag("--from-start", fromStart,
                     "first render (and discard) the frames from the flow's start");

    auto* apply = app.add_subcommand("apply", "one tool on one picture");
    std::string applyTool, output, inputImage, sizeText, colourText = "0,0,0,0", preset, frameText;
    std::vector<std::string> inputs, sets;
    apply->add_option("TOOL", applyTool, "registered or plain name, any case")->required();
    apply->add_option("-o,--output", output, "output file; a run of # takes the frame number")
        ->required();
    auto* imageOption = apply->add_option("-i,--image", inputImage, "the picture (main input)");
    auto* sizeOption =
        apply->add_option("--size", sizeText, "WxH of a generated picture when there is no -i");
    apply->add_option("--colour", colourText, "R,G,B,A of the generated picture, 16-bit")
        ->needs(sizeOption);
    imageOption->excludes(sizeOption);
    apply->add_option("--input", inputs, "NAME=IMAGE for a further image input");
    apply->add_option("--set", sets, "ID=VALUE for an input");
    apply->add_option("--preset", preset,
                      "a \"Demos\" entry, by its text; ENTRY@F chooses it before frame F");
    std::vector<std::string> presses;
    apply->add_option("--press", presses, "ID@F: press a button before frame F renders");
    apply->add_flag("--from-start", fromStart,
                    "first render (and discard) the frames from frame 1 up to the first asked for");
    auto* framesOption = apply->add_option("--frames", framesText, "frames A-B");
    apply->add_option("--frame", frameText, "one frame")->excludes(framesOption);
    apply->add_option("--threads", threads, "processors the image operators split over")
        ->check(CLI::Range(1, 256));
    apply->add_flag("-q,--quiet", quiet, "no progress and no summary");
    apply->add_option("--max-pixels", maxPixelsText, maxPixelsHelp);
    bool overlay = false;
    double zoom = 1.0;
    apply->add_flag("--overlay", overlay, "draw the tool's on-screen controls over the output");
    apply->add_option("--zoom", zoom, "view pixels per image pixel, for --overlay")
        ->check(CLI::Range(0.01, 64.0));

    auto* controlsCmd = app.add_subcommand(
        "controls", "the on-screen controls of a tool: their line work, and what drags do");
    std::string controlsTool, controlsSize = "720x486", controlsFrame;
    std::vector<std::string> controlsSets, drags;
    bool controlsJson = false;
    double controlsZoom = 1.0;
    controlsCmd->add_option("TOOL", controlsTool, "registered or plain name, any case")->required();
    controlsCmd->add_option("--size", controlsSize, "WxH of the picture (default 720x486)");
    controlsCmd->add_option("--set", controlsSets, "ID=VALUE for an input");
    controlsCmd->add_option("--frame", controlsFrame, "the frame the view stands on (default 1)");
    controlsCmd->add_option("--zoom", controlsZoom, "view pixels per image pixel")
        ->check(CLI::Range(0.01, 64.0));
    controlsCmd->add_option("--drag", drags,
                            "X1,Y1:X2,Y2: press, move and release, in image pixels, y up");
    controlsCmd->add_flag("--json", controlsJson, "as JSON");

    auto* serve = app.add_subcommand(
        "serve", "the viewer: a local web server for a flow, opened in a browser");
    ServeOptions serveOptions;
    serve->add_option("FLOW", serveOptions.flowPath,
                      "the flow file (JSON); without one, a test picture under a Ripple");
    serve->add_option("--port", serveOptions.port, "the port (default 8407; 0 takes a free one)")
        ->check(CLI::Range(0, 65535));
    serve->add_option("--bind", serveOptions.bind, "the address to listen on (default 127.0.0.1)");
    serve->add_option("--web", serveOptions.webDir, "the page's folder (default: the built one)");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        out << app.help();
        return 0;
    } catch (const CLI::CallForAllHelp&) {
        out << app.help("", CLI::AppFormatMode::All);
        return 0;
    } catch (const CLI::CallForVersion&) {
        out << "crate07\n";
        return 0;
    } catch (const CLI::ParseError& e) {
        // The parser's own explanation, on one line of ours, with the code of a usage error.
        err << "crate07: " << OneLine(e.what()) << " (crate07 --help lists the options)\n";
        return kExitUsage;
    }

    try {
        if (threads > 0) GetApp()->SetProcessorCount(threads);
        SetMaxPixels(maxPixelsText.empty()
                         ? kDefaultMaxPixels
                         : ParseWhole(maxPixelsText, 1, int64_t{1} << 40, "--max-pixels"));

        if (*tools) {
            bool any = false;
            if (ClassRegistry)
                for (Registry* r : ClassRegistry->Items()) {
                    out << std::left << std::setw(14) << r->Name() << std::setw(6) << r->ShortName()
                        << r->Description() << "\n";
                    any = true;
                }
            if (!any) out << "no tools are available in this build yet\n";
            return 0;
        }
        if (*describe) {
            json d = DescribeTool(describeTool);
            if (describeJson)
                out << d.dump(2) << "\n";
            else
                PrintDescription(d, out);
            return 0;
        }
        if (*render) {
            FrameRange frames;
            if (render->count("--frames")) frames = ParseFrames(framesText, "--frames");
            auto flow = Flow::Load(flowPath);
            return RenderFlow(*flow, frames, fromStart, quiet, out, err);
        }
        if (*apply) {
            FindToolOrThrow(applyTool);
            FrameRange frames;
            const bool oneFrame = apply->count("--frame") > 0;
            if (apply->count("--frames")) frames = ParseFrames(framesText, "--frames");
            if (oneFrame) frames = ParseFrames(frameText, "--frame");
            if (!frames.given) frames.given = true;  // frame 1 unless told otherwise
            if (oneFrame && frames.first != frames.last)
                throw AppError("--frame takes one frame; use --frames A-B for a range");

            json flow;
            flow["range"] = {fromStart ? std::min(1, frames.first) : frames.first, frames.last};
            json nodes = json::array();
            if (!inputImage.empty()) {
                nodes.push_back({{"name", "image"}, {"type", "Loader"}, {"path", inputImage}});
            } else {
                if (sizeText.empty())
                    throw AppError(
                        "apply needs a picture: -i IMAGE, or --size WxH for a "
                        "generated one");
                auto [w, h] = ParseSize(sizeText);
                json colour = ParseValue(colourText, "--colour");
                if (!colour.is_array() || (colour.size() != 3 && colour.size() != 4))
                    throw AppError("--colour '" + colourText +
                                   "' is not R,G,B or R,G,B,A in 16-bit samples");
                flow["size"] = {w, h};
                nodes.push_back({{"name", "image"},
                                 {"type", "Background"},
                                 {"pattern", "solid"},
                                 {"colour", colour}});
            }
            json tool = {{"name", applyTool}, {"type", applyTool}, {"source", "image"}};
            json connect = json::object();
            int n = 0;
            for (const auto& i : inputs) {
                auto [name, path] = SplitAssignment(i, "--input");
                std::string node = "input" + std::to_string(++n);
                nodes.push_back({{"name", node}, {"type", "Loader"}, {"path", path}});
                connect[name] = node;
            }
            if (!connect.empty()) tool["connect"] = connect;
            json values = json::object();
            for (const auto& s : sets) {
                auto [id, value] = SplitAssignment(s, "--set");
                values[id] = ParseValue(value, "--set");
            }
            if (!values.empty()) tool["inputs"] = values;
            if (apply->count("--preset")) {
                size_t at = preset.rfind('@');
                if (at == std::string::npos) {
                    tool["preset"] = preset;
                } else {
                    FrameRange f = ParseFrames(preset.substr(at + 1), "--preset");
                    tool["presets"] = {{{"entry", preset.substr(0, at)}, {"frame", f.first}}};
                }
            }
            json press = json::object();
            for (const auto& p : presses) {
                size_t at = p.rfind('@');
                std::string id = at == std::string::npos ? p : p.substr(0, at);
                int frame = at == std::string::npos
                                ? frames.first
                                : ParseFrames(p.substr(at + 1), "--press").first;
                if (id.empty()) throw AppError("--press '" + p + "' is not of the form ID@F");
                press[id].push_back(frame);
            }
            if (!press.empty()) tool["press"] = press;
            nodes.push_back(tool);
            json saver = {
                {"name", "output"}, {"type", "Saver"}, {"input", applyTool}, {"path", output}};
            if (overlay) {
                saver["overlay"] = true;
                saver["overlay_zoom"] = zoom;
            }
            nodes.push_back(saver);
            flow["nodes"] = nodes;
            auto built = Flow::FromJson(flow, "apply");
            return RenderFlow(*built, frames, fromStart, quiet, out, err);
        }
        if (*serve) {
            if (serveOptions.webDir.empty()) serveOptions.webDir = CRATE07_WEB_DIR;
            ViewerServer server(serveOptions);
            server.Bind();
            out << "crate07 viewer: open " << server.Url() << " in a browser (Ctrl-C stops it)"
                << std::endl;
            std::atomic<bool> done{false};
            // Ctrl-C raises the application's interruption; the watcher turns it into a stop.
            std::thread watcher([&] {
                while (!done.load()) {
                    if (GetApp()->interrupted.load()) {
                        server.Stop();
                        break;
                    }
                    std::this_thread::sleep_for(std::chrono::milliseconds(100));
                }
            });
            server.Run();
            done = true;
            watcher.join();
            return 0;
        }
        if (*controlsCmd) {
            FindToolOrThrow(controlsTool);
            auto [w, h] = ParseSize(controlsSize);
            // Every drag is read before anything is printed, so that a bad one is the only line.
            static const std::regex dragPattern(R"(^\s*([^,:]+),([^,:]+):([^,:]+),([^,:]+)$)");
            std::vector<std::array<float, 4>> points;
            for (const auto& d : drags) {
                std::smatch m;
                if (!std::regex_match(d, m, dragPattern))
                    throw AppError("--drag '" + d + "' is not of the form X1,Y1:X2,Y2");
                static const char* const names[4] = {"X1", "Y1", "X2", "Y2"};
                std::array<float, 4> p;
                for (int i = 0; i < 4; ++i)
                    p[i] = ParseFloat(m[i + 1].str(), "--drag '" + d + "': " + names[i]);
                points.push_back(p);
            }
            FrameRange frame;
            if (controlsCmd->count("--frame")) frame = ParseFrames(controlsFrame, "--frame");
            if (frame.first != frame.last) throw AppError("--frame takes one frame, not a range");
            json values = json::object();
            for (const auto& s : controlsSets) {
                auto [id, value] = SplitAssignment(s, "--set");
                values[id] = ParseValue(value, "--set");
            }
            json tool = {{"name", controlsTool}, {"type", controlsTool}, {"source", "image"}};
            if (!values.empty()) tool["inputs"] = values;
            json flow = {{"size", {w, h}},
                         {"range", {frame.first, frame.first}},
                         {"nodes", {{{"name", "image"}, {"type", "Background"}}, tool}}};
            auto built = Flow::FromJson(flow, "controls");
            ControlView view(built->ToolOf(controlsTool), w, h, controlsZoom, frame.first);
            json report;
            report["lines"] = LinesToJson(view.Draw());
            if (!controlsJson) {
                out << "Line work, in image pixels (y up):\n";
                PrintLines(view.Draw(), out);
            }
            report["drags"] = json::array();
            for (size_t k = 0; k < drags.size(); ++k) {
                const std::string& d = drags[k];
                const std::array<float, 4>& p = points[k];
                ControlView::DragReport r = view.Drag(p[0], p[1], p[2], p[3]);
                std::vector<LineWork> after = view.Draw();
                json entry = {{"from", {p[0], p[1]}},
                              {"to", {p[2], p[3]}},
                              {"written", r.written},
                              {"undo", r.undo},
                              {"lines", LinesToJson(after)}};
                entry["hovered"] =
                    r.control
                        ? json({{"control", r.control}, {"handle", r.handle}, {"input", r.input}})
                        : json(nullptr);
                report["drags"].push_back(entry);
                if (controlsJson) continue;
                out << "\nDrag " << d << ":\n";
                if (!r.control) {
                    out << "  the press hit no handle\n";
                    continue;
                }
                out << "  handle " << r.handle << " of control " << r.control << " (" << r.input
                    << ")\n";
                for (auto it = r.written.begin(); it != r.written.end(); ++it)
                    out << "  wrote " << it.key() << " = " << it.value().dump() << "\n";
                for (const auto& u : r.undo)
                    out << "  undo step \"" << u << "\"\n";
                out << "  line work after the drag:\n";
                PrintLines(after, out);
            }
            if (controlsJson) out << report.dump(2) << "\n";
            return 0;
        }
    } catch (const std::exception& e) {
        err << "crate07: " << OneLine(e.what()) << "\n";
        return kExitError;
    }
    return 0;
}
