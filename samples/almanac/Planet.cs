// SPDX-License-Identifier: MIT
using CsvHelper.Configuration.Attributes;

namespace Almanac;

/// <summary>One line of the table of planets.</summary>
internal sealed class Planet
{
    [Name("name")]
    public string Name { get; set; } = "";

    [Name("period_days")]
    public double PeriodDays { get; set; }

    [Name("distance_million_km")]
    public double Distance { get; set; }

    [Name("moons")]
    public int Moons { get; set; }
}

/// <summary>What the almanac is made for.</summary>
internal sealed class Settings
{
    public string Title { get; set; } = "";
    public string Epoch { get; set; } = "";
    public string Zone { get; set; } = "";
    public Dictionary<string, string> Units { get; set; } = [];
}
