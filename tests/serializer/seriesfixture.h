// A raw series with what stands beside it, written here by the texts alone, and the program that reads it.
#pragma once

#include "serializerfixture.h"
#include "seriesfiles.h"
#include "seriesreader.h"

#include <vector>

class SeriesTest : public SerializerTest
{
protected:
    using Row = SeriesFiles::Row;

    static SeriesFiles::RawShape ShapeOf(Picture const &picture)
    {
        _TovImage const *image = picture.Image();
        return {image->pixelType, image->width, image->height, image->bitDepth,
                TovLineBytes(image->pixelType, image->width)};
    }
    static Row RowOf(Picture const &picture, unsigned i, std::string const &file)
    {
        Row row;
        row.number = i;
        row.file = file;
        row.frameId = picture.Image()->frameID;
        row.timestamp = picture.Image()->timestamp;
        row.arrival = 1'000'000'000'000'000'000 + i * 20'000'000; // 50 a second
        return row;
    }
    struct Result
    {
        std::string output; // of both streams
        int status;
    };
    Result Tovfile(std::string const &arguments)
    {
        std::string output =
            Output("cd '" + folder.string() + "' && { '" TOVFILE "' " + arguments + " 2>&1; echo $?; }");
        std::size_t const status = output.rfind('\n', output.size() - 2) + 1;
        return {output.substr(0, status), std::stoi(output.substr(status))};
    }
    // STEM_0.raw and so on, and STEM_0.series/.
    void MakeSeries(std::string const &stem, std::uint32_t type, TovImageSize size, unsigned frames)
    {
        std::string table = SeriesFiles::TableHead(), list, name = stem + "_0";
        SeriesFiles::NrrdHead head;
        for (unsigned i = 0; i < frames; ++i) {
            Picture const picture = Frame(type, size, i);
            std::string const file = stem + '_' + std::to_string(i) + ".raw";
            if (i == 0)
                head = SeriesFiles::MakeNrrdHead(ShapeOf(picture));
            Write(file, picture.Lines());
            table += SeriesFiles::Encode(RowOf(picture, i, "../" + file));
            list += SeriesFiles::NrrdFileLine("../" + file);
        }
        head.text.replace(head.countAt, SeriesFiles::CountDigits, SeriesFiles::NrrdCount(frames));
        fs::create_directory(Path(name + ".series"));
        name = name + ".series/" + name;
        Write(name + ".frames.csv", table);
        Write(name + ".nhdr", head.text + list);
        Write(name + ".ledger.txt", "[Ledger]\nsaved=" + std::to_string(frames) + "\n[Failures]\nsaved=9\n");
    }
};
