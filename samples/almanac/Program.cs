// SPDX-License-Identifier: MIT
// A small application as applications are: what it does before its first line of output is done
// by libraries. It reads settings and a table, makes a page of them, and reports what is on it.
using System.Globalization;
using System.Runtime;
using System.Text;
using AngleSharp.Html.Parser;
using CsvHelper;
using Humanizer;
using Markdig;
using Newtonsoft.Json;
using Newtonsoft.Json.Linq;
using NodaTime;
using NodaTime.Text;
using YamlDotNet.Serialization;
using YamlDotNet.Serialization.NamingConventions;

namespace Almanac;

internal static class Program
{
    private static void Main()
    {
        CultureInfo.CurrentCulture = CultureInfo.InvariantCulture;
        var settings = ReadSettings("almanac.yaml");
        var planets = ReadPlanets("planets.csv");
        var html = RenderPage(settings, planets);
        Console.WriteLine(Report(html).ToString(Formatting.None));
        Console.WriteLine($"methods jitted: {JitInfo.GetCompiledMethodCount()}");
    }

    private static string DataFile(string name) =>
        Path.Combine(AppContext.BaseDirectory, "data", name);

    private static Settings ReadSettings(string name) =>
        new DeserializerBuilder()
            .WithNamingConvention(UnderscoredNamingConvention.Instance)
            .Build()
            .Deserialize<Settings>(File.ReadAllText(DataFile(name)));

    private static List<Planet> ReadPlanets(string name)
    {
        using var reader = new StreamReader(DataFile(name));
        using var csv = new CsvReader(reader, CultureInfo.InvariantCulture);
        return [.. csv.GetRecords<Planet>()];
    }

    private static string RenderPage(Settings settings, List<Planet> planets)
    {
        var zone = DateTimeZoneProviders.Tzdb[settings.Zone];
        var epoch = LocalDatePattern.Iso.Parse(settings.Epoch).Value.AtStartOfDayInZone(zone);
        var page = new StringBuilder()
            .AppendLine($"# {settings.Title.Titleize()}").AppendLine()
            .AppendLine($"| Planet | {settings.Units["distance"]} | Year | Next turn | Moons |")
            .AppendLine("|---|--:|---|---|---|");
        foreach (var planet in planets)
        {
            page.AppendLine(Row(planet, epoch));
        }

        var pipeline = new MarkdownPipelineBuilder().UseAdvancedExtensions().Build();
        return Markdown.ToHtml(page.ToString(), pipeline);
    }

    private static string Row(Planet planet, ZonedDateTime epoch)
    {
        var period = Duration.FromDays(planet.PeriodDays);
        var turn = ZonedDateTimePattern.CreateWithInvariantCulture("uuuu-MM-dd HH:mm z", null)
            .Format(epoch.Plus(period));
        return $"| **{planet.Name}** | {planet.Distance} | {period.ToTimeSpan().Humanize(2)} | {turn} |"
            + $" {"moon".ToQuantity(planet.Moons, ShowQuantityAs.Words)} |";
    }

    private static JObject Report(string html)
    {
        var document = new HtmlParser().ParseDocument(html);
        return new JObject
        {
            ["title"] = document.QuerySelector("h1")?.TextContent,
            ["planets"] = new JArray(
                document.QuerySelectorAll("td strong").Select(element => element.TextContent)),
            ["last turn"] = document.QuerySelectorAll("tr:last-child td:nth-child(4)")
                .Select(element => element.TextContent).FirstOrDefault(),
        };
    }
}
