#include "TarnwellTidyKit/Pictures/Picture.hpp"

#include "TarnwellTidyKit/Pictures/PictureColours.hpp"
#include "TarnwellTidyKit/Pictures/PictureText.hpp"
#include "TarnwellTidyKit/Pictures/PictureViews.hpp"

namespace tarnwell {

namespace {

std::string document(const PictureRequest& request, std::string_view size) {
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 1200 800\" " + std::string(size) + ">\n" +
           std::string(pictureMark) + "\n<title>" + escapedMarkup(picturePath(*request.folder)) +
           "</title>\n<style>" + pictureStyleSheet() + "</style>\n" + pictureViews(request) + "</svg>\n";
}

} // namespace

std::string drawSVG(const PictureRequest& request) {
    return document(request, "width=\"1200\" height=\"800\"");
}

std::string drawHTML(const PictureRequest& request) {
    const std::string title = escapedMarkup(picturePath(*request.folder));
    return "<!DOCTYPE html>\n" + std::string(pictureMark) +
           "\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
           "style-src 'unsafe-inline'\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"color-scheme\" content=\"light dark\">\n<title>" +
           title +
           "</title>\n<style>html,body{margin:0;height:100%;background:#fff}"
           "body>svg{display:block;width:100vw;height:100vh}"
           "@media(prefers-color-scheme:dark){html,body{background:#0b1120}}</style>\n</head>\n<body>\n" +
           document(request, "") + "</body>\n</html>\n";
}

} // namespace tarnwell
