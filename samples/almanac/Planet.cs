// SPDX-License-Identifier: MIT
namespace Almanac;

/// <summary>One line of the table of planets: the period in days, the distance in million km.</summary>
internal sealed record Planet(string Name, double PeriodDays, double Distance, int Moons);

/// <summary>What the almanac is made for.</summary>
internal sealed record Settings(string Title, string Epoch, string Zone);
