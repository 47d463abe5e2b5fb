using System;

namespace Shop
{
    [AttributeUsage(AttributeTargets.All)]
    public sealed class AuditedAttribute : Attribute
    {
    }

    public interface IRepository
    {
        void Save();
    }

    // Names that extend each other, for the prefix rule of class and method sets.
    public class Order : IDisposable
    {
        public string GetName() => "order";
        public void Get() { }
        public void G() { }
        public void Place() { }
        public void Dispose() { }

        public class Line
        {
            public void Touch() { }
        }
    }

    public class OrderItem
    {
        public string GetName() => "item";
        public decimal Total() => 0;
    }

    public class SpecialOrder : Order
    {
        public void Upgrade() { }
    }

    // Its grandparent is Order: a parent rule sees only SpecialOrder.
    public class VerySpecialOrder : SpecialOrder
    {
        public void Celebrate() { }
    }

    public class OrderRepository : IRepository
    {
        public void Save() { }
        public void Load() { }
    }

    [Audited]
    public class Invoice
    {
        [Audited]
        public void Issue() { }
        public void Cancel() { }
    }

    public class Cart<T>
    {
        public void Add(T item) { }
        public int Count() => 0;
    }

    public abstract class PaymentBase
    {
        public abstract void Pay();
        public void Refund() { }
    }

    public class CardPayment : PaymentBase
    {
        public override void Pay() { }
    }

    public readonly struct Money
    {
        public int Amount() => 0;
    }
}

namespace Billing.Internal
{
    public class Ledger
    {
        public void Post() { }
        public void Close() { }
    }
}

// Same names as the web framework's base controller and its attribute, in
// another assembly: the annotation exclusion must not touch these.
namespace Microsoft.AspNetCore.Mvc
{
    [AttributeUsage(AttributeTargets.Method)]
    public sealed class NonActionAttribute : Attribute
    {
    }

    public class Controller
    {
        [NonAction]
        public void View() { }
        public void Index() { }
    }
}

// A class without a namespace.
public class Program
{
    public static void Main() { }
    public static void main() { }
}
