// SPDX-License-Identifier: MIT
// A small application as applications are: what it does before its first line of output is done
// by libraries. It makes a page of a table, and prints what a reader of that page would see.
using System.Globalization;
using System.Runtime;
using System.Text;
using AngleSharp.Html.Parser;
using CsvHelper;
using Markdig;
using Newtonsoft.Json;
using NodaTime;
using NodaTime.Text;
using Spectre.Console;

namespace Almanac;

internal static class Program
{
    private static void Main()
    {
        var settings = ReadSettings("almanac.json");
        var planets = ReadPlanets("planets.csv");
        var pipeline = new MarkdownPipelineBuilder().UseAdvancedExtensions().Build();
        Print(Markdown.ToHtml(Page(settings, planets), pipeline));
        Console.WriteLine($"methods jitted: {JitInfo.GetCompiledMethodCount()}");
    }

    private static Settings ReadSettings(string name) =>
        JsonConvert.DeserializeObject<Settings>(File.ReadAllText(DataFile(name)))
        ?? throw new InvalidDataException($"{name} is empty");

    private static string DataFile(string name) =>
        Path.Combine(AppContext.BaseDirectory, "data", name);

    private static List<Planet> ReadPlanets(string name)
    {
        using var reader = new StreamReader(DataFile(name));
        using var csv = new CsvReader(reader, CultureInfo.InvariantCulture);
        return [.. csv.GetRecords<Planet>()];
    }

    private static string Page(Settings settings, List<Planet> planets)
    {
        var zone = DateTimeZoneProviders.Tzdb[settings.Zone];
        var epoch = LocalDatePattern.Iso.Parse(settings.Epoch).Value.AtStartOfDayInZone(zone);
        var format = ZonedDateTimePattern.CreateWithInvariantCulture("uuuu-MM-dd HH:mm z", null);
        var page = new StringBuilder()
            .AppendLine($"# {settings.Title}").AppendLine()
            .AppendLine("| Planet | Million km | Next turn | Moons |")
            .AppendLine("|---|--:|---|--:|");
        foreach (var planet in planets)
        {
            var turn = epoch.Plus(Duration.FromDays(planet.PeriodDays));
            page.AppendLine(CultureInfo.InvariantCulture,
                $"| **{planet.Name}** | {planet.Distance} | {format.Format(turn)} | {planet.Moons} |");
        }

        return page.ToString();
    }

    private static void Print(string html)
    {
        var document = new HtmlParser().ParseDocument(html);
        var table = new Table { Title = new TableTitle(document.QuerySelector("h1")!.TextContent) };
        foreach (var heading in document.QuerySelectorAll("th"))
        {
            table.AddColumn(heading.TextContent);
        }

        foreach (var row in document.QuerySelectorAll("tbody tr"))
        {
            table.AddRow([.. row.QuerySelectorAll("td").Select(cell => cell.TextContent)]);
        }

        AnsiConsole.Write(table);
    }
}
